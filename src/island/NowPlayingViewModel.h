#pragma once

#include <QColor>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QtQml/qqmlregistration.h>

class QQmlEngine;
class QJSEngine;

namespace mirrowisp {

class AppModel;
class NowPlayingService;

// What plays, for the island's music views: the closed island's cover and waveform, and the home
// tab's player. One per QML engine; they all read the app's now-playing service. The cover is
// served as "image://nowplaying/…", whose address changes with each new cover.
class NowPlayingViewModel : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(NowPlaying)
    QML_SINGLETON
    Q_PROPERTY(bool hasTrack READ hasTrack NOTIFY changed)
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QString artist READ artist NOTIFY changed)
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY changed)
    Q_PROPERTY(double duration READ duration NOTIFY changed)
    Q_PROPERTY(bool canRepeat READ canRepeat NOTIFY changed)
    // "off", "all" or "one".
    Q_PROPERTY(QString repeatMode READ repeatMode NOTIFY changed)
    Q_PROPERTY(QString artworkUrl READ artworkUrl NOTIFY artworkChanged)
    Q_PROPERTY(QColor accent READ accent NOTIFY artworkChanged)
    Q_PROPERTY(QColor secondColor READ secondColor NOTIFY artworkChanged)

public:
    explicit NowPlayingViewModel(NowPlayingService* service, QObject* parent = nullptr);

    // The service the views of every engine made from now on read; the island shell sets it.
    static void setShared(NowPlayingService* service);
    static NowPlayingViewModel* create(QQmlEngine* engine, QJSEngine*);

    bool hasTrack() const;
    QString title() const;
    QString artist() const;
    bool isPlaying() const;
    double duration() const;
    bool canRepeat() const;
    QString repeatMode() const;
    QString artworkUrl() const;
    QColor accent() const;
    QColor secondColor() const;

    // The position as of now; the player's bar asks while it shows, so nothing ticks otherwise.
    Q_INVOKABLE double positionNow() const;
    Q_INVOKABLE void playPause();
    Q_INVOKABLE void next();
    Q_INVOKABLE void previous();
    Q_INVOKABLE void seek(double seconds);
    Q_INVOKABLE void cycleRepeat();
    Q_INVOKABLE void openPlayer();

Q_SIGNALS:
    void changed();
    void artworkChanged();

private:
    QPointer<NowPlayingService> service_;
    int artworkSerial_ = 0;
};

} // namespace mirrowisp
