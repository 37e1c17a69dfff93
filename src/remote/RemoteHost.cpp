#include "remote/RemoteHost.h"

#include <QJsonValue>

namespace mirrowisp {

QString RemoteHost::hostName() const {
    const qsizetype at = destination.lastIndexOf(QLatin1Char('@'));
    return at < 0 ? destination : destination.mid(at + 1);
}

QJsonObject RemoteHost::toJson() const {
    QJsonObject object{{QStringLiteral("destination"), destination},
                       {QStringLiteral("home"), home},
                       {QStringLiteral("system"), system}};
    if (port) {
        object.insert(QStringLiteral("port"), *port);
    }
    if (!identity.isEmpty()) {
        object.insert(QStringLiteral("identity"), identity);
    }
    return object;
}

std::optional<RemoteHost> RemoteHost::fromJson(const QJsonObject& object) {
    RemoteHost host;
    host.destination = object.value(QStringLiteral("destination")).toString();
    if (host.destination.isEmpty() || host.destination.startsWith(QLatin1Char('-'))) {
        return std::nullopt;
    }
    if (const QJsonValue port = object.value(QStringLiteral("port")); port.isDouble()) {
        const int value = port.toInt();
        if (value < 1 || value > 65535) {
            return std::nullopt;
        }
        host.port = value;
    }
    host.identity = object.value(QStringLiteral("identity")).toString();
    host.home = object.value(QStringLiteral("home")).toString();
    host.system = object.value(QStringLiteral("system")).toString();
    return host;
}

namespace Ssh {

QStringList arguments(const RemoteHost& host, const QStringList& options) {
    QStringList args{QStringLiteral("-o"), QStringLiteral("BatchMode=yes"), QStringLiteral("-o"),
                     QStringLiteral("ConnectTimeout=10")};
    if (host.port) {
        args << QStringLiteral("-p") << QString::number(*host.port);
    }
    if (!host.identity.isEmpty()) {
        args << QStringLiteral("-i") << host.identity;
    }
    args << options;
    // "--" ends the options, so a destination can never be read as one.
    args << QStringLiteral("--") << host.destination;
    return args;
}

QString quote(const QString& value) {
    QString quoted = value;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

} // namespace Ssh

} // namespace mirrowisp
