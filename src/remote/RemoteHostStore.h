#pragma once

#include "remote/RemoteHost.h"

#include <QList>
#include <QObject>
#include <QString>
#include <memory>
#include <optional>

namespace mirrowisp {

class SerialQueue;

// The hosts the user added, kept in "remote-hosts.json" in the support folder. Used on the main
// thread; the file is read once when the store is made and written on a queue of its own. A file
// that cannot be read as a host list gives no hosts and is moved aside before the first write.
class RemoteHostStore : public QObject {
    Q_OBJECT

public:
    explicit RemoteHostStore(QString supportDirectory, QObject* parent = nullptr);
    ~RemoteHostStore() override;

    QString filePath() const;
    // In the order they were added.
    const QList<RemoteHost>& hosts() const { return hosts_; }
    std::optional<RemoteHost> host(const QString& destination) const;
    // Adds the host, or replaces the one with its destination in place.
    void put(const RemoteHost& host);
    // False when no host has that destination.
    bool remove(const QString& destination);
    // Waits for the writes queued so far.
    void flush();

Q_SIGNALS:
    void changed();

private:
    struct Writer;
    void save();

    QString supportDirectory_;
    QList<RemoteHost> hosts_;
    std::shared_ptr<Writer> writer_;
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace mirrowisp
