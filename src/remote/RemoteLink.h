#pragma once

#include "base/Clock.h"
#include "bridge/BridgeServer.h"
#include "remote/Backoff.h"
#include "remote/RemoteHost.h"

#include <QJsonObject>
#include <QObject>
#include <QProcess>
#include <QTimer>
#include <memory>
#include <optional>

namespace mirrowisp {

enum class RemoteLinkState { connecting, connected, reconnecting, failed };

QString remoteLinkStateName(RemoteLinkState state);

// The connection to one remote host: a local socket of the host's own, and an `ssh` child that
// forwards the host's ~/.mirrowisp/bridge.sock to it. Every request accepted on that socket is
// stamped with the host, whatever the remote side sends. A connection that ends is tried again
// after a backoff; `failed` means it never came up since the link started, `reconnecting` that it
// was up before. Main thread only.
class RemoteLink : public QObject {
    Q_OBJECT

public:
    RemoteLink(RemoteHost host, QString localSocket, BridgeServer::RequestHandler onRequest,
               const Clock& clock, QObject* parent = nullptr);
    ~RemoteLink() override;

    // Opens the local socket and starts the first connection.
    void start();
    // Starts the next attempt when its time has come (a timer calls it; tests call it directly).
    void tick(Timestamp now);

    const RemoteHost& host() const { return host_; }
    RemoteLinkState state() const { return state_; }
    // Why the last attempt or connection ended: ssh's last message, or ours.
    const QString& reason() const { return reason_; }
    // Since when the host has been unreachable; nothing while connected or still first connecting.
    std::optional<Timestamp> awaySince() const { return awaySince_; }
    std::optional<Timestamp> retryAt() const { return retryAt_; }
    QString localSocket() const { return localSocket_; }
    // {"state", "reason" (when there is one), "retryIn" (seconds, while waiting)}.
    QJsonObject toJson(Timestamp now) const;

    // The arguments of the `ssh` that holds the connection; `token` names the attempt's fresh socket.
    static QStringList sshArguments(const RemoteHost& host, const QString& localSocket, const QString& token);

Q_SIGNALS:
    void stateChanged();

private:
    void launch();
    void readOutput();
    void readMessages();
    void ended();
    void setState(RemoteLinkState state, const QString& reason = {});
    void giveUp(const QString& reason);

    RemoteHost host_;
    QString localSocket_;
    const Clock& clock_;
    std::unique_ptr<BridgeServer> server_;
    std::unique_ptr<QProcess> ssh_;
    QByteArray output_;
    QString lastMessage_;
    bool everConnected_ = false;
    RemoteLinkState state_ = RemoteLinkState::connecting;
    QString reason_;
    Backoff backoff_;
    std::optional<Timestamp> awaySince_;
    std::optional<Timestamp> retryAt_;
    QTimer retryTimer_;
};

} // namespace mirrowisp
