#include "base/UserDefaults.h"

#include "base/AtomicJsonFile.h"
#include "base/Log.h"
#include "base/RegularFile.h"
#include "base/SerialQueue.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <future>

namespace mirrowisp {

struct UserDefaults::Writer {
    QString filePath;
    // Why the file found at start-up couldn't be used; cleared once a copy of it is kept.
    std::optional<QString> unreadable;
    // The last write error logged, so a full disk doesn't log once per prompt.
    std::optional<QString> lastWriteError;

    void write(const QJsonObject& values);
    bool keepUnreadableFile();
};

UserDefaults::UserDefaults(QObject* parent) : UserDefaults(defaultFilePath(), parent) {}

UserDefaults::UserDefaults(QString filePath, QObject* parent)
    : QObject(parent), filePath_(std::move(filePath)), writer_(std::make_shared<Writer>()) {
    writer_->filePath = filePath_;
    load();
}

UserDefaults::~UserDefaults() {
    flush();
}

UserDefaults& UserDefaults::standard() {
    static UserDefaults instance;
    return instance;
}

QString UserDefaults::configHome() {
    // A relative value is invalid and must be ignored, so a stray setting can't scatter files
    // into whatever folder the app was started from.
    const QString configured = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (QDir::isAbsolutePath(configured)) {
        return QDir::cleanPath(configured);
    }
    return QDir::homePath() + QStringLiteral("/.config");
}

QString UserDefaults::defaultFilePath() {
    return configHome() + QStringLiteral("/mirrowisp/defaults.json");
}

void UserDefaults::load() {
    const FileRead read = readRegularFile(filePath_);
    if (read.status == FileRead::Status::missing) {
        return;
    }
    if (!read.ok()) {
        writer_->unreadable = read.reason();
        return;
    }
    const QByteArray& bytes = read.bytes;
    if (bytes.isEmpty()) {
        return; // nothing in it to lose
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        writer_->unreadable =
            QStringLiteral("not JSON: %1 at byte %2").arg(error.errorString()).arg(error.offset);
    } else if (!document.isObject()) {
        writer_->unreadable = QStringLiteral("not a JSON object");
    } else {
        values_ = document.object();
    }
}

void UserDefaults::registerDefaults(const QJsonObject& defaults) {
    for (auto it = defaults.begin(); it != defaults.end(); ++it) {
        registered_.insert(it.key(), it.value());
    }
}

void UserDefaults::registerDefaults(const QVariantMap& defaults) {
    registerDefaults(QJsonObject::fromVariantMap(defaults));
}

std::optional<QJsonValue> UserDefaults::object(const QString& key) const {
    if (const auto it = values_.constFind(key); it != values_.constEnd()) {
        return it.value();
    }
    if (const auto it = registered_.constFind(key); it != registered_.constEnd()) {
        return it.value();
    }
    return std::nullopt;
}

std::optional<bool> UserDefaults::boolValue(const QString& key) const {
    const auto value = object(key);
    if (!value || !value->isBool()) {
        return std::nullopt;
    }
    return value->toBool();
}

std::optional<double> UserDefaults::doubleValue(const QString& key) const {
    const auto value = object(key);
    if (!value || !value->isDouble()) {
        return std::nullopt;
    }
    return value->toDouble();
}

std::optional<QString> UserDefaults::stringValue(const QString& key) const {
    const auto value = object(key);
    if (!value || !value->isString()) {
        return std::nullopt;
    }
    return value->toString();
}

std::optional<QStringList> UserDefaults::stringArray(const QString& key) const {
    const auto value = object(key);
    if (!value || !value->isArray()) {
        return std::nullopt;
    }
    QStringList strings;
    for (const QJsonValue element : value->toArray()) {
        if (!element.isString()) {
            return std::nullopt;
        }
        strings.append(element.toString());
    }
    return strings;
}

std::optional<QJsonObject> UserDefaults::dictionary(const QString& key) const {
    const auto value = object(key);
    if (!value || !value->isObject()) {
        return std::nullopt;
    }
    return value->toObject();
}

void UserDefaults::set(const QString& key, const QJsonValue& value) {
    // JSON has no null setting and no infinite number: such a value would not read back as written.
    if (value.isNull() || value.isUndefined() || (value.isDouble() && !std::isfinite(value.toDouble()))) {
        remove(key);
        return;
    }
    if (const auto it = values_.constFind(key); it != values_.constEnd() && it.value() == value) {
        return;
    }
    const auto before = object(key);
    values_.insert(key, value);
    persist();
    if (before != object(key)) {
        Q_EMIT changed(key);
    }
}

void UserDefaults::remove(const QString& key) {
    if (!values_.contains(key)) {
        return;
    }
    const auto before = object(key);
    values_.remove(key);
    persist();
    if (before != object(key)) {
        Q_EMIT changed(key);
    }
}

UserDefaults::Batch::~Batch() {
    if (--defaults_.batchDepth_ == 0 && defaults_.writeHeldBack_) {
        defaults_.writeHeldBack_ = false;
        defaults_.write();
    }
}

void UserDefaults::persist() {
    if (batchDepth_ > 0) {
        writeHeldBack_ = true;
    } else {
        write();
    }
}

void UserDefaults::coalesceWrites(const Clock& clock, Scheduler schedule, double interval) {
    clock_ = &clock;
    interval_ = interval;
    schedule_ =
        schedule ? std::move(schedule) : Scheduler([this](double seconds, std::function<void()> work) {
            QTimer::singleShot(std::chrono::milliseconds(qRound64(seconds * 1000)), this, std::move(work));
        });
    if (!queue_) {
        queue_ = std::make_unique<SerialQueue>("user defaults");
    }
}

void UserDefaults::write() {
    if (!clock_) {
        writer_->write(values_);
        return;
    }
    dirty_ = true;
    if (writeScheduled_) {
        return; // the write at the end of this interval takes this change along
    }
    // Bounded both ways, so that a clock set back can't hold writes back for long.
    const double wait =
        lastWrite_ ? std::clamp(*lastWrite_ + interval_ - clock_->now(), 0.0, interval_) : 0.0;
    if (wait <= 0) {
        startWrite();
        return;
    }
    writeScheduled_ = true;
    QPointer<UserDefaults> self(this);
    schedule_(wait, [self] {
        if (self) {
            self->writeScheduled_ = false;
            if (self->dirty_) {
                self->startWrite();
            }
        }
    });
}

void UserDefaults::startWrite() {
    dirty_ = false;
    lastWrite_ = clock_->now();
    queue_->async([writer = writer_, values = values_] { writer->write(values); });
}

void UserDefaults::flush() {
    if (!queue_) {
        return;
    }
    if (dirty_) {
        startWrite();
    }
    std::promise<void> done;
    queue_->async([&done] { done.set_value(); });
    done.get_future().wait();
}

void UserDefaults::Writer::write(const QJsonObject& values) {
    if (unreadable && !keepUnreadableFile()) {
        return;
    }
    const auto error = writeJsonAtomically(filePath, QJsonDocument(values));
    if (error && error != lastWriteError) {
        logLine(QStringLiteral("Mirrowisp: user defaults write failed: ") + *error);
    }
    lastWriteError = error;
}

bool UserDefaults::Writer::keepUnreadableFile() {
    if (const auto aside = moveAside(filePath)) {
        if (!aside->isEmpty()) {
            logLine(QStringLiteral("Mirrowisp: user defaults file %1 was unreadable (%2); kept it as %3")
                        .arg(filePath, *unreadable, *aside));
        }
        unreadable.reset();
        return true;
    }
    // Writing now would destroy the only copy of the user's settings; keep them in memory instead.
    const QString error = QStringLiteral("cannot keep a copy of the unreadable file %1 (%2): %3")
                              .arg(filePath, *unreadable, QString::fromLocal8Bit(std::strerror(errno)));
    if (error != lastWriteError) {
        logLine(QStringLiteral("Mirrowisp: user defaults write failed: ") + error);
    }
    lastWriteError = error;
    return false;
}

} // namespace mirrowisp
