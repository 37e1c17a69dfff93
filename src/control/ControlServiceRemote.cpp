// The remote hosts' part of the control interface.

#include "control/ControlService.h"
#include "remote/RemoteSetup.h"

#include <QDBusMessage>
#include <QDir>
#include <QJsonDocument>
#include <algorithm>

namespace mirrowisp {

namespace {

// What ssh would take as a destination and nothing else: no option, no blank, no control character.
bool isDestination(const QString& text) {
    if (text.isEmpty() || text.startsWith(QLatin1Char('-'))) {
        return false;
    }
    return std::none_of(text.begin(), text.end(),
                        [](QChar c) { return c.isSpace() || c.category() == QChar::Other_Control; });
}

} // namespace

QString ControlService::RemoteList() {
    if (!callerIsThisUser()) {
        return {};
    }
    if (remote_ == nullptr) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("remote hosts are not available"));
        return {};
    }
    return QString::fromUtf8(QJsonDocument(remote_->toJson()).toJson(QJsonDocument::Indented));
}

QString ControlService::RemoteAdd(const QString& destination, int port, const QString& identity) {
    if (!callerIsThisUser()) {
        return {};
    }
    if (remote_ == nullptr) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("remote hosts are not available"));
        return {};
    }
    if (!isDestination(destination) || port < 0 || port > 65535 ||
        (!identity.isEmpty() && !QDir::isAbsolutePath(identity))) {
        sendErrorReply(errorPrefix + QStringLiteral("BadArgument"),
                       QStringLiteral("not a host: ") + destination);
        return {};
    }
    RemoteHost host;
    host.destination = destination;
    if (port > 0) {
        host.port = port;
    }
    host.identity = identity;
    setDelayedReply(true);
    remote_->add(host, [request = message(), bus = connection()](const RemoteOutcome& outcome) mutable {
        if (outcome.error) {
            bus.send(request.createErrorReply(errorPrefix + QStringLiteral("RemoteFailed"), *outcome.error));
        } else {
            bus.send(
                request.createReply(outcome.host.destination + QStringLiteral(": ") + outcome.message()));
        }
    });
    return {};
}

QString ControlService::RemoteRemove(const QString& destination, bool forget) {
    if (!callerIsThisUser()) {
        return {};
    }
    if (remote_ == nullptr) {
        sendErrorReply(QDBusError::NotSupported, QStringLiteral("remote hosts are not available"));
        return {};
    }
    setDelayedReply(true);
    remote_->remove(destination, forget,
                    [request = message(), bus = connection()](const RemoteOutcome& outcome) mutable {
                        if (outcome.error) {
                            bus.send(request.createErrorReply(errorPrefix + QStringLiteral("RemoteFailed"),
                                                              *outcome.error));
                            return;
                        }
                        QString text = outcome.host.destination + QStringLiteral(": removed");
                        if (!outcome.problems.isEmpty()) {
                            text += QStringLiteral("; ") + outcome.problems.join(QStringLiteral("; "));
                        }
                        bus.send(request.createReply(text));
                    });
    return {};
}

} // namespace mirrowisp
