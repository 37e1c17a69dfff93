#pragma once

#include "remote/RemoteHost.h"
#include "remote/RemoteHostStore.h"
#include "remote/RemoteSetupSteps.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonValue>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

class SerialQueue;

// The hosts' set-up for the app: the steps run one at a time on a thread of their own; the store
// changes and the last message of each host are published on the main thread.
class RemoteSetup : public QObject {
    Q_OBJECT

public:
    using Done = std::function<void(const RemoteOutcome&)>;
    // A host's connection state as the link to it reports it, for the list; null until one is given.
    using ConnectionState = std::function<QJsonValue(const RemoteHost&)>;

    RemoteSetup(RemoteHostStore& store, QString toolPath, QObject* parent = nullptr);
    ~RemoteSetup() override;

    RemoteHostStore& store() const { return store_; }
    // Adds (or sets up again) the host; it is stored once it is set up. A failure is listed with its
    // message until the host is added again or removed.
    void add(const RemoteHost& host, Done done = {});
    // Takes the hooks and the tool off a stored host and forgets it; with `forget`, forgets it without
    // reaching it. A host that failed to be added is just dropped from the list.
    void remove(const QString& destination, bool forget = false, Done done = {});
    bool isBusy(const QString& destination) const { return busy_.contains(destination); }
    QString lastMessage(const QString& destination) const { return messages_.value(destination); }

    void setConnectionState(ConnectionState state) { connectionState_ = std::move(state); }
    // Every stored host, then every failed one: destination, port, identity, home, system, "setup"
    // (adding, removing, ready, failed), "message" and "connection".
    QJsonArray toJson() const;

Q_SIGNALS:
    void changed();

private:
    void finish(const QString& destination, const RemoteOutcome& outcome, bool removing, const Done& done);

    RemoteHostStore& store_;
    QString toolPath_;
    ConnectionState connectionState_;
    QHash<QString, QString> busy_;       // destination -> "adding" / "removing"
    QHash<QString, QString> messages_;   // destination -> last message
    QHash<QString, RemoteHost> unsaved_; // being added for the first time, or failed to be
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace mirrowisp
