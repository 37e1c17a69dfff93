#include "remote/RemoteLinks.h"

#include "agents/AgentStore.h"
#include "bridge/BridgeProtocol.h"

#include <QCryptographicHash>

namespace mirrowisp {

RemoteLinks::RemoteLinks(BridgeServer::RequestHandler onRequest, const Clock& clock, QObject* parent)
    : QObject(parent), onRequest_(std::move(onRequest)), clock_(clock) {}

RemoteLinks::~RemoteLinks() = default;

QString RemoteLinks::socketPath(const QString& destination) {
    // A hash keeps the name short (a socket path holds 107 bytes) and free of the user's characters.
    const QByteArray hash =
        QCryptographicHash::hash(destination.toUtf8(), QCryptographicHash::Sha256).toHex().left(16);
    return BridgeProtocol::supportDirectory() + QStringLiteral("/remote/") + QString::fromLatin1(hash) +
           QStringLiteral(".sock");
}

void RemoteLinks::setHosts(const QList<RemoteHost>& hosts) {
    QHash<QString, RemoteHost> wanted;
    for (const RemoteHost& host : hosts) {
        wanted.insert(host.destination, host);
    }
    QStringList changed;
    for (auto it = links_.begin(); it != links_.end();) {
        const auto want = wanted.constFind(it.key());
        if (want == wanted.constEnd() || *want != it.value()->host()) {
            changed << it.key();
            it = links_.erase(it); // kills its ssh and closes its socket
        } else {
            ++it;
        }
    }
    for (const RemoteHost& host : std::as_const(wanted)) {
        if (links_.contains(host.destination)) {
            continue;
        }
        auto link = std::make_shared<RemoteLink>(host, socketPath(host.destination), onRequest_, clock_);
        const QString destination = host.destination;
        connect(link.get(), &RemoteLink::stateChanged, this,
                [this, destination] { Q_EMIT stateChanged(destination); });
        links_.insert(destination, link);
        link->start();
        changed.removeAll(destination);
        Q_EMIT stateChanged(destination);
    }
    for (const QString& removed : std::as_const(changed)) {
        Q_EMIT stateChanged(removed);
    }
}

QList<RemoteHost> RemoteLinks::hosts() const {
    QList<RemoteHost> list;
    for (const auto& link : links_) {
        list << link->host();
    }
    return list;
}

std::optional<RemoteHost> RemoteLinks::host(const QString& destination) const {
    if (RemoteLink* found = link(destination)) {
        return found->host();
    }
    return std::nullopt;
}

RemoteLink* RemoteLinks::link(const QString& destination) const {
    const auto it = links_.constFind(destination);
    return it == links_.constEnd() ? nullptr : it.value().get();
}

QJsonObject RemoteLinks::state(const QString& destination) const {
    const RemoteLink* found = link(destination);
    return found != nullptr ? found->toJson(clock_.now()) : QJsonObject();
}

void RemoteLinks::tick(Timestamp now) {
    for (const auto& link : std::as_const(links_)) {
        link->tick(now);
    }
}

void RemoteLinks::reportTo(AgentStore& store) {
    // The store is the connection's context: the lambda never outlives it.
    connect(this, &RemoteLinks::stateChanged, &store, [this, &store](const QString& destination) {
        const RemoteLink* found = link(destination);
        store.setHostAway(destination, found != nullptr ? found->awaySince() : std::optional(clock_.now()));
    });
}

} // namespace mirrowisp
