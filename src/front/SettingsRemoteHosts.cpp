#include "front/SettingsRemoteHosts.h"

#include "remote/RemoteSetup.h"

#include <QJsonArray>
#include <QRegularExpression>

namespace mirrowisp {

SettingsRemoteHosts::SettingsRemoteHosts(SettingsServices services, QObject* parent)
    : QObject(parent), services_(std::move(services)) {
    if (services_.remote != nullptr) {
        connect(services_.remote, &RemoteSetup::changed, this, &SettingsRemoteHosts::rowsChanged);
    }
}

QVariantList SettingsRemoteHosts::rows() const {
    if (services_.remote == nullptr) {
        return {};
    }
    QVariantList rows;
    for (const QJsonValue& host : services_.remote->toJson()) {
        QVariantMap row = host.toObject().toVariantMap();
        // The link's state may be an object (state and reason) or a word.
        const QJsonValue connection = host.toObject().value(QStringLiteral("connection"));
        row.insert(QStringLiteral("connection"),
                   connection.isObject() ? connection.toObject().value(QStringLiteral("state")).toString()
                                         : connection.toString());
        row.insert(QStringLiteral("unreachable"),
                   unreachable_.contains(row.value(QStringLiteral("destination")).toString()));
        rows.append(row);
    }
    return rows;
}

bool SettingsRemoteHosts::add(const QString& text) {
    if (services_.remote == nullptr) {
        return false;
    }
    // A user name, a host name or address, and a port: nothing ssh could read as an option.
    static const QRegularExpression pattern(
        QStringLiteral("^((?:[A-Za-z0-9._][A-Za-z0-9._-]*@)?[A-Za-z0-9._:\\[\\]-]+?)(?::(\\d{1,5}))?$"));
    const QRegularExpressionMatch match = pattern.match(text.trimmed());
    const int port = match.captured(2).toInt();
    if (!match.hasMatch() || match.captured(1).startsWith(QLatin1Char('-')) || port > 65535 ||
        (match.hasCaptured(2) && port == 0)) {
        setError(QStringLiteral("Not a host: write it as host, user@host or user@host:port."));
        return false;
    }
    setError({});
    RemoteHost host;
    host.destination = match.captured(1);
    if (port > 0) {
        host.port = port;
    }
    services_.remote->add(host);
    return true;
}

void SettingsRemoteHosts::remove(const QString& destination) {
    if (services_.remote == nullptr) {
        return;
    }
    const bool forget = unreachable_.remove(destination);
    services_.remote->remove(destination, forget,
                             [self = QPointer(this), destination](const RemoteOutcome& outcome) {
                                 // Not for a host still being set up: only a removal that ran and failed.
                                 if (self && outcome.error && !self->services_.remote->isBusy(destination) &&
                                     self->services_.remote->store().host(destination)) {
                                     self->unreachable_.insert(destination);
                                     Q_EMIT self->rowsChanged();
                                 }
                             });
}

void SettingsRemoteHosts::setError(const QString& error) {
    if (error_ != error) {
        error_ = error;
        Q_EMIT errorChanged();
    }
}

} // namespace mirrowisp
