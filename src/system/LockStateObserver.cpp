#include "system/LockStateObserver.h"

#include "base/Log.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace mirrowisp {

namespace {

const QString login1 = QStringLiteral("org.freedesktop.login1");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");
const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
const QString lockedHint = QStringLiteral("LockedHint");

struct ScreenSaver {
    QString name, path;
};
const ScreenSaver screenSavers[] = {
    {QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("/org/freedesktop/ScreenSaver")},
    {QStringLiteral("org.gnome.ScreenSaver"), QStringLiteral("/org/gnome/ScreenSaver")},
};

} // namespace

LockStateObserver::LockStateObserver(QDBusConnection systemBus, QDBusConnection sessionBus, QObject* parent)
    : QObject(parent), system_(std::move(systemBus)), session_(std::move(sessionBus)) {}

void LockStateObserver::start() {
    if (started_) {
        return;
    }
    started_ = true;
    // logind names the caller's session "auto"; its signals come from the session's real path.
    QDBusMessage call = QDBusMessage::createMethodCall(login1, QStringLiteral("/org/freedesktop/login1"),
                                                       QStringLiteral("org.freedesktop.login1.Manager"),
                                                       QStringLiteral("GetSession"));
    call.setArguments({QStringLiteral("auto")});
    auto* watcher = new QDBusPendingCallWatcher(system_.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isValid()) {
            followSession(reply.value().path());
        } else {
            followScreenSaver();
        }
    });
}

void LockStateObserver::followSession(const QString& path) {
    system_.connect(login1, path, properties, QStringLiteral("PropertiesChanged"), this,
                    SLOT(sessionChanged(QString, QVariantMap, QStringList)));
    QDBusMessage get = QDBusMessage::createMethodCall(login1, path, properties, QStringLiteral("Get"));
    get.setArguments({sessionInterface, lockedHint});
    auto* watcher = new QDBusPendingCallWatcher(system_.asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        if (reply.isValid() && reply.value().variant().typeId() == QMetaType::Bool) {
            set(reply.value().variant().toBool());
        }
    });
}

void LockStateObserver::followScreenSaver() {
    for (const auto& saver : screenSavers) {
        session_.connect(saver.name, saver.path, saver.name, QStringLiteral("ActiveChanged"), this,
                         SLOT(screenSaverChanged(bool)));
    }
}

void LockStateObserver::sessionChanged(const QString& interface, const QVariantMap& changed,
                                       const QStringList&) {
    const QVariant value = changed.value(lockedHint);
    if (interface == sessionInterface && value.typeId() == QMetaType::Bool) {
        set(value.toBool());
    }
}

void LockStateObserver::screenSaverChanged(bool active) {
    set(active);
}

void LockStateObserver::set(bool locked) {
    if (locked == isLocked_) {
        return;
    }
    isLocked_ = locked;
    if (onChange) {
        onChange(locked);
    }
}

void LockStateObserver::attach(bool lockScreenEnabled) {
    static bool told = false;
    if (lockScreenEnabled && !told) {
        told = true;
        logLine(QStringLiteral("Mirrowisp: the island cannot show above the lock screen on this desktop"));
    }
}

} // namespace mirrowisp
