#pragma once

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "media/MprisPlayers.h"
#include "media/NowPlayingTrack.h"

#include <QColor>
#include <QDBusConnection>
#include <QImage>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QTimer>
#include <atomic>
#include <memory>
#include <optional>

namespace mirrowisp {

// What plays on the desktop, from every MPRIS player on the session bus, and the commands that
// drive it. Readings arrive as the players signal, and from a slow poll; between them the position
// is extrapolated. A command shows its expected result at once.
class NowPlayingService : public QObject {
    Q_OBJECT

public:
    static constexpr int pollIntervalMs = 5000;
    static constexpr double pendingRepeatSeconds = 4.0;

    NowPlayingService(QDBusConnection bus, const Clock& clock, QObject* parent = nullptr);
    ~NowPlayingService() override;

    // Follows the bus and starts the slow poll.
    void start();
    // Off clears the track and the cover at once, and readings are ignored until it is on again.
    void setEnabled(bool enabled);
    // Where covers are searched when a player gives none ("https://host"); empty searches nowhere.
    void setCatalogue(const QString& origin) { catalogue_ = origin; }

    // Publishes the best of the players' readings: a playing one, else a paused one.
    void refresh();

    const std::optional<NowPlayingTrack>& track() const { return track_; }
    Timestamp positionSampledAt() const { return positionSampledAt_; }
    const std::optional<QImage>& artwork() const { return artwork_; }
    const QColor& accentColor() const { return accentColor_; }
    const QList<QColor>& palette() const { return palette_; }
    double interpolatedPosition() const;
    MprisPlayers& players() { return players_; }
    // Whether a command has a player to go to.
    bool hasPlayer() const { return target() != nullptr; }
    // The track as `mirrowisp ctl media` prints it: null without one; the position as of now and the
    // colours as #rrggbb.
    QJsonObject toJson() const;

    // "playpause", "next track" or "previous track".
    void send(const QString& command);
    void seek(double seconds);
    void cycleRepeat();
    void openPlayer();

Q_SIGNALS:
    void trackChanged();
    // The cover and its colours.
    void artworkChanged();

private:
    void apply(std::optional<NowPlayingTrack> result, const QString& artUrl);
    void setTrack(std::optional<NowPlayingTrack> track);
    void loadArtwork(const NowPlayingTrack& track, const QString& artUrl);
    void clearArtwork();
    MprisPlayer* target() const;
    void refreshLater(MprisPlayer* player, int delayMs);

    const Clock& clock_;
    MprisPlayers players_;
    QTimer pollTimer_;
    bool enabled_ = true;
    QString catalogue_;
    std::optional<NowPlayingTrack> track_;
    Timestamp positionSampledAt_ = 0;
    std::optional<QImage> artwork_;
    QColor accentColor_;
    QList<QColor> palette_;
    struct PendingRepeat {
        RepeatMode mode;
        QString key;
        Timestamp until;
    };
    std::optional<PendingRepeat> pendingRepeat_;
    std::optional<QString> artworkKey_;
    // Set on destruction, so a cover still being fetched does not hold up quitting.
    std::shared_ptr<std::atomic_bool> cancel_ = std::make_shared<std::atomic_bool>(false);
    SerialQueue queue_{"mirrowisp.nowplaying"};
};

} // namespace mirrowisp
