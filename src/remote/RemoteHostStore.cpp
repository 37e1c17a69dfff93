#include "remote/RemoteHostStore.h"

#include "base/AtomicJsonFile.h"
#include "base/Log.h"
#include "base/RegularFile.h"
#include "base/SerialQueue.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <cstdio>
#include <future>

namespace mirrowisp {

namespace {

constexpr qint64 hostsFileLimit = 4 * 1024 * 1024;

std::optional<QList<RemoteHost>> decodeHosts(const QByteArray& bytes) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    const QJsonValue list = document.object().value(QStringLiteral("hosts"));
    if (error.error != QJsonParseError::NoError || !list.isArray()) {
        return std::nullopt;
    }
    QList<RemoteHost> hosts;
    for (const QJsonValue& value : list.toArray()) {
        // One bad record costs that host only.
        if (auto host = RemoteHost::fromJson(value.toObject())) {
            hosts.append(*host);
        }
    }
    return hosts;
}

} // namespace

struct RemoteHostStore::Writer {
    QString filePath;
    std::optional<QString> unreadable; // why the file found at start could not be used

    void write(const QByteArray& json) {
        if (unreadable && !keepUnreadableFile()) {
            return;
        }
        if (const auto error = writeFileAtomically(filePath, json)) {
            logLine(QStringLiteral("Mirrowisp: remote hosts write failed: ") + *error);
        }
    }

    bool keepUnreadableFile() {
        const auto aside = moveAside(filePath);
        if (!aside) {
            return false; // writing now would lose the only copy
        }
        if (!aside->isEmpty()) {
            logLine(QStringLiteral("Mirrowisp: remote hosts file %1 was unreadable (%2); kept it as %3")
                        .arg(filePath, *unreadable, *aside));
        }
        unreadable.reset();
        return true;
    }
};

RemoteHostStore::RemoteHostStore(QString supportDirectory, QObject* parent)
    : QObject(parent), supportDirectory_(std::move(supportDirectory)), writer_(std::make_shared<Writer>()),
      queue_(std::make_unique<SerialQueue>("mw-remotehosts")) {
    writer_->filePath = filePath();
    const FileRead read = readRegularFile(filePath(), hostsFileLimit);
    if (read.status == FileRead::Status::missing) {
        return;
    }
    auto decoded = read.ok() ? decodeHosts(read.bytes) : std::nullopt;
    if (!decoded) {
        writer_->unreadable = read.ok() ? QStringLiteral("not a host list") : read.reason();
        return;
    }
    hosts_ = std::move(*decoded);
}

RemoteHostStore::~RemoteHostStore() {
    flush();
}

QString RemoteHostStore::filePath() const {
    return supportDirectory_ + QStringLiteral("/remote-hosts.json");
}

std::optional<RemoteHost> RemoteHostStore::host(const QString& destination) const {
    for (const RemoteHost& host : hosts_) {
        if (host.destination == destination) {
            return host;
        }
    }
    return std::nullopt;
}

void RemoteHostStore::put(const RemoteHost& host) {
    for (RemoteHost& existing : hosts_) {
        if (existing.destination == host.destination) {
            if (existing == host) {
                return;
            }
            existing = host;
            save();
            return;
        }
    }
    hosts_.append(host);
    save();
}

bool RemoteHostStore::remove(const QString& destination) {
    const qsizetype removed =
        hosts_.removeIf([&](const RemoteHost& host) { return host.destination == destination; });
    if (removed == 0) {
        return false;
    }
    save();
    return true;
}

void RemoteHostStore::save() {
    QJsonArray list;
    for (const RemoteHost& host : hosts_) {
        list.append(host.toJson());
    }
    const QByteArray json =
        QJsonDocument(QJsonObject{{QStringLiteral("hosts"), list}}).toJson(QJsonDocument::Indented);
    queue_->async([writer = writer_, json] { writer->write(json); });
    Q_EMIT changed();
}

void RemoteHostStore::flush() {
    std::promise<void> done;
    queue_->async([&done] { done.set_value(); });
    done.get_future().wait();
}

} // namespace mirrowisp
