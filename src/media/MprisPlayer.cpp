#include "media/MprisPlayer.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QPointer>

namespace mirrowisp {

namespace {

const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

} // namespace

MprisPlayer::MprisPlayer(QDBusConnection bus, QString name, QObject* parent)
    : QObject(parent), bus_(std::move(bus)), name_(std::move(name)) {
    // Bound to the name, so the signals follow the player across owners and no other's reach us.
    bus_.connect(name_, objectPath, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                 SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    bus_.connect(name_, objectPath, playerInterface, QStringLiteral("Seeked"), this, SLOT(seeked(qlonglong)));
    fetchIdentity();
    fetch();
}

QDBusMessage MprisPlayer::message(const QString& interface, const QString& method) const {
    QDBusMessage message = QDBusMessage::createMethodCall(name_, objectPath, interface, method);
    message.setAutoStartService(false);
    return message;
}

void MprisPlayer::fetch() {
    if (fetching_) {
        return;
    }
    fetching_ = true;
    QDBusMessage request = message(propertiesInterface, QStringLiteral("GetAll"));
    request << playerInterface;
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(request, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        done->deleteLater();
        fetching_ = false;
        const QDBusPendingReply<QVariantMap> reply = *done;
        // A player that hangs, quits or answers nonsense shows nothing until it answers again.
        properties_ = reply.isError() ? QVariantMap() : reply.value();
        publish(false);
    });
}

void MprisPlayer::fetchIdentity() {
    QDBusMessage request = message(propertiesInterface, QStringLiteral("GetAll"));
    request << rootInterface;
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(request, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        done->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *done;
        if (!reply.isError()) {
            const QVariantMap root = reply.value();
            const QVariant raise = root.value(QStringLiteral("CanRaise"));
            canRaise_ = raise.metaType() == QMetaType::fromType<bool>() && raise.toBool();
            const QVariant entry = root.value(QStringLiteral("DesktopEntry"));
            desktopEntry_ = entry.metaType() == QMetaType::fromType<QString>() ? entry.toString() : QString();
        }
    });
}

void MprisPlayer::publish(bool activity) {
    MprisReading reading = readMprisProperties(name_, properties_);
    const bool changed = reading.track != reading_.track || reading.artUrl != reading_.artUrl ||
                         reading.trackId != reading_.trackId;
    reading_ = std::move(reading);
    if (changed || activity) {
        Q_EMIT updated(activity);
    }
}

void MprisPlayer::propertiesChanged(const QString& interface, const QVariantMap& changed,
                                    const QStringList& invalidated) {
    if (interface != playerInterface) {
        return;
    }
    for (auto it = changed.begin(); it != changed.end(); ++it) {
        properties_.insert(it.key(), it.value());
    }
    const bool activity =
        changed.contains(QStringLiteral("PlaybackStatus")) || changed.contains(QStringLiteral("Metadata"));
    publish(activity);
    // Position is never signalled: after a change of state or track, ask where it stands now.
    if (activity || !invalidated.isEmpty()) {
        fetch();
    }
}

void MprisPlayer::seeked(qlonglong position) {
    properties_.insert(QStringLiteral("Position"), position);
    publish(false);
}

void MprisPlayer::call(const QString& method, const QVariantList& arguments) {
    QDBusMessage request = message(playerInterface, method);
    request.setArguments(arguments);
    bus_.asyncCall(request, callTimeoutMs);
}

void MprisPlayer::setLoopStatus(const QString& status) {
    QDBusMessage request = message(propertiesInterface, QStringLiteral("Set"));
    request << playerInterface << QStringLiteral("LoopStatus") << QVariant::fromValue(QDBusVariant(status));
    bus_.asyncCall(request, callTimeoutMs);
}

void MprisPlayer::raise() {
    bus_.asyncCall(message(rootInterface, QStringLiteral("Raise")), callTimeoutMs);
}

} // namespace mirrowisp
