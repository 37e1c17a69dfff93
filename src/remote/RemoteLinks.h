#pragma once

#include "base/Clock.h"
#include "bridge/BridgeServer.h"
#include "remote/RemoteHost.h"
#include "remote/RemoteLink.h"

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <memory>

namespace mirrowisp {

class AgentStore;

// One connection per remote host the user added. Requests that arrive through any of them go to
// `onRequest`, stamped with their host, like those of local agents. Main thread only.
class RemoteLinks : public QObject {
    Q_OBJECT

public:
    explicit RemoteLinks(BridgeServer::RequestHandler onRequest, const Clock& clock = SystemClock::shared(),
                         QObject* parent = nullptr);
    ~RemoteLinks() override;

    // Starts a link for every new or changed host and ends those of hosts no longer listed: their
    // sockets close, so what their forward still brings in is refused.
    void setHosts(const QList<RemoteHost>& hosts);
    QList<RemoteHost> hosts() const;
    std::optional<RemoteHost> host(const QString& destination) const;
    RemoteLink* link(const QString& destination) const;

    // The link's state for `ctl remote list` and the settings window; empty for an unknown host.
    QJsonObject state(const QString& destination) const;
    // Starts the attempts that are due.
    void tick(Timestamp now);

    // Tells the store when a host's connection goes away and comes back, so that sessions on a host
    // gone for good end; a removed host counts as gone from the moment it is removed.
    void reportTo(AgentStore& store);

    // The local socket a host's forward ends at: <support>/remote/<hash of the destination>.sock.
    static QString socketPath(const QString& destination);

Q_SIGNALS:
    void stateChanged(const QString& destination);

private:
    BridgeServer::RequestHandler onRequest_;
    const Clock& clock_;
    QHash<QString, std::shared_ptr<RemoteLink>> links_;
};

} // namespace mirrowisp
