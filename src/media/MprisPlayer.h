#pragma once

#include "media/MprisReading.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantMap>

namespace mirrowisp {

// One org.mpris.MediaPlayer2.* name on the bus: its last properties, kept current by its signals
// and by asking again. Every call is asynchronous and bounded, so a player that hangs costs one
// outstanding call and no wait.
class MprisPlayer : public QObject {
    Q_OBJECT

public:
    static inline const QString objectPath = QStringLiteral("/org/mpris/MediaPlayer2");
    static inline const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
    static inline const QString rootInterface = QStringLiteral("org.mpris.MediaPlayer2");
    // How long a player may take to answer before its reading is dropped.
    static constexpr int callTimeoutMs = 2000;

    MprisPlayer(QDBusConnection bus, QString name, QObject* parent = nullptr);

    const QString& name() const { return name_; }
    const MprisReading& reading() const { return reading_; }
    bool canRaise() const { return canRaise_; }
    const QString& desktopEntry() const { return desktopEntry_; }

    // Asks for every property again, unless a request is still out.
    void fetch();
    // Calls a method of the player interface; the answer is not waited for.
    void call(const QString& method, const QVariantList& arguments = {});
    void setLoopStatus(const QString& status);
    void raise();

Q_SIGNALS:
    // A new reading; `activity` when the playback status or the track changed.
    void updated(bool activity);

private Q_SLOTS:
    void propertiesChanged(const QString& interface, const QVariantMap& changed,
                           const QStringList& invalidated);
    void seeked(qlonglong position);

private:
    void fetchIdentity();
    void publish(bool activity);
    QDBusMessage message(const QString& interface, const QString& method) const;

    QDBusConnection bus_;
    QString name_;
    QVariantMap properties_;
    MprisReading reading_;
    bool fetching_ = false;
    bool canRaise_ = false;
    QString desktopEntry_;
};

} // namespace mirrowisp
