#include "base/UserDefaults.h"

#include "base/AtomicJsonFile.h"
#include "base/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <cmath>

namespace mirrowisp {

UserDefaults::UserDefaults(QObject* parent) : UserDefaults(defaultFilePath(), parent) {}

UserDefaults::UserDefaults(QString filePath, QObject* parent)
    : QObject(parent), filePath_(std::move(filePath)) {
    load();
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
    QFile file(filePath_);
    if (!file.exists()) {
        return;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        unreadable_ = file.errorString();
        return;
    }
    const QByteArray bytes = file.readAll();
    if (bytes.isEmpty()) {
        return; // nothing in it to lose
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        unreadable_ = QStringLiteral("not JSON: %1 at byte %2").arg(error.errorString()).arg(error.offset);
    } else if (!document.isObject()) {
        unreadable_ = QStringLiteral("not a JSON object");
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

void UserDefaults::write() {
    if (unreadable_ && !keepUnreadableFile()) {
        return;
    }
    const auto error = writeJsonAtomically(filePath_, QJsonDocument(values_));
    if (error && error != lastWriteError_) {
        logLine(QStringLiteral("Mirrowisp: user defaults write failed: ") + *error);
    }
    lastWriteError_ = error;
}

bool UserDefaults::keepUnreadableFile() {
    if (!QFileInfo::exists(filePath_)) {
        unreadable_.reset(); // gone meanwhile: nothing left to keep
        return true;
    }
    const QString stem = filePath_ + QStringLiteral(".unreadable-") +
                         QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
    QString copy = stem;
    for (int n = 2; QFileInfo::exists(copy); ++n) {
        copy = stem + QStringLiteral("-%1").arg(n);
    }
    QFile original(filePath_);
    if (original.copy(copy)) {
        logLine(QStringLiteral("Mirrowisp: user defaults file %1 was unreadable (%2); kept it as %3")
                    .arg(filePath_, *unreadable_, copy));
        unreadable_.reset();
        return true;
    }
    // Writing now would destroy the only copy of the user's settings; keep them in memory instead.
    const QString error = QStringLiteral("cannot keep a copy of the unreadable file %1 (%2): %3")
                              .arg(filePath_, *unreadable_, original.errorString());
    if (error != lastWriteError_) {
        logLine(QStringLiteral("Mirrowisp: user defaults write failed: ") + error);
    }
    lastWriteError_ = error;
    return false;
}

} // namespace mirrowisp
