#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <functional>

namespace mirrowisp {

// Whether the session is locked: logind's LockedHint for this session, or where there is no logind,
// the screensaver's ActiveChanged.
class LockStateObserver : public QObject {
    Q_OBJECT

public:
    LockStateObserver(QDBusConnection systemBus, QDBusConnection sessionBus, QObject* parent = nullptr);

    void start();
    bool isLocked() const { return isLocked_; }
    std::function<void(bool)> onChange;

    // Keeping a window above the lock screen is the locker's business on Linux: nothing to do here
    // but say so once, when the setting asks for it.
    static void attach(bool lockScreenEnabled);

private Q_SLOTS:
    void sessionChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);
    void screenSaverChanged(bool active);

private:
    void followSession(const QString& path);
    void followScreenSaver();
    void set(bool locked);

    QDBusConnection system_;
    QDBusConnection session_;
    bool started_ = false;
    bool isLocked_ = false;
};

} // namespace mirrowisp
