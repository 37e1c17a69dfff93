#include "media/NowPlayingService.h"

#include "base/MainQueue.h"
#include "base/RegularFile.h"
#include "media/ArtworkLookup.h"
#include "media/Palette.h"

#include <QDBusObjectPath>
#include <QJsonArray>
#include <QPointer>
#include <QProcess>
#include <QUrl>
#include <algorithm>

namespace mirrowisp {

namespace {

std::optional<QImage> playerArtwork(const QString& artUrl, const ArtworkLookup::Cancel& cancel) {
    const QUrl url(artUrl);
    if (url.isLocalFile()) {
        const FileRead read = readRegularFile(url.toLocalFile(), ArtworkLookup::maxArtworkBytes);
        return read.ok() ? ArtworkLookup::decode(read.bytes) : std::nullopt;
    }
    const std::optional<QUrl> remote = ArtworkLookup::artworkURL(artUrl);
    if (!remote) {
        return std::nullopt;
    }
    const std::optional<QByteArray> bytes = ArtworkLookup::fetch(*remote, cancel);
    return bytes ? ArtworkLookup::decode(*bytes) : std::nullopt;
}

} // namespace

NowPlayingService::NowPlayingService(QDBusConnection bus, const Clock& clock, QObject* parent)
    : QObject(parent), clock_(clock), players_(std::move(bus)), palette_(defaultPalette()) {
    accentColor_ = palette_.first();
    connect(&players_, &MprisPlayers::changed, this, &NowPlayingService::refresh);
    // Signals carry the latency; the poll only covers players that miss some, so it may run late.
    pollTimer_.setInterval(pollIntervalMs);
    pollTimer_.setTimerType(Qt::VeryCoarseTimer);
    connect(&pollTimer_, &QTimer::timeout, &players_, &MprisPlayers::fetchAll);
}

NowPlayingService::~NowPlayingService() {
    *cancel_ = true;
}

void NowPlayingService::start() {
    players_.start();
    pollTimer_.start();
}

void NowPlayingService::setEnabled(bool enabled) {
    const bool turnedOn = enabled && !enabled_;
    enabled_ = enabled;
    refresh();
    if (turnedOn) {
        players_.fetchAll(); // positions read while it was off are stale
    }
}

void NowPlayingService::refresh() {
    if (!enabled_) {
        setTrack(std::nullopt);
        clearArtwork();
        artworkKey_.reset();
        return;
    }
    const MprisReading* paused = nullptr;
    for (const MprisPlayer* player : players_.runningSources()) {
        const MprisReading& reading = player->reading();
        if (reading.track && reading.track->isPlaying) {
            apply(reading.track, reading.artUrl);
            return;
        }
        if (reading.track && paused == nullptr) {
            paused = &reading;
        }
    }
    apply(paused ? paused->track : std::nullopt, paused ? paused->artUrl : QString());
}

void NowPlayingService::apply(std::optional<NowPlayingTrack> result, const QString& artUrl) {
    const Timestamp now = clock_.now();
    if (pendingRepeat_ && pendingRepeat_->until < now) {
        pendingRepeat_.reset();
    }
    if (pendingRepeat_ && result && result->trackKey() == pendingRepeat_->key) {
        result->repeatMode = pendingRepeat_->mode;
    }
    setTrack(result);
    if (!result) {
        clearArtwork();
        artworkKey_.reset();
        return;
    }
    if (result->trackKey() != artworkKey_) {
        artworkKey_ = result->trackKey();
        loadArtwork(*result, artUrl);
    }
}

void NowPlayingService::setTrack(std::optional<NowPlayingTrack> track) {
    if (track != track_) {
        track_ = std::move(track);
        positionSampledAt_ = clock_.now();
        Q_EMIT trackChanged();
    }
}

void NowPlayingService::clearArtwork() {
    if (artwork_) {
        artwork_.reset();
        Q_EMIT artworkChanged();
    }
}

void NowPlayingService::loadArtwork(const NowPlayingTrack& track, const QString& artUrl) {
    QPointer<NowPlayingService> self(this);
    const QString key = track.trackKey();
    queue_.async([self, key, artUrl, catalogue = catalogue_, artist = track.artist, album = track.album,
                  title = track.title, cancel = ArtworkLookup::Cancel(cancel_)] {
        std::optional<QImage> image = playerArtwork(artUrl, cancel);
        if (!image && !catalogue.isEmpty()) {
            image = ArtworkLookup::image(catalogue, artist, album, title, cancel);
        }
        QList<QColor> colours =
            (image ? mirrowisp::palette(*image) : std::nullopt).value_or(defaultPalette());
        postToMain([self, key, image = std::move(image), colours = std::move(colours)] {
            // A result for a track that is no longer on show is dropped whole.
            if (self == nullptr || self->artworkKey_ != key) {
                return;
            }
            self->artwork_ = image;
            self->accentColor_ = colours.first();
            self->palette_ = colours;
            Q_EMIT self->artworkChanged();
        });
    });
}

double NowPlayingService::interpolatedPosition() const {
    if (!track_) {
        return 0;
    }
    if (!track_->isPlaying) {
        return track_->position;
    }
    const double position = track_->position + (clock_.now() - positionSampledAt_) * track_->rate;
    return track_->duration > 0 ? std::min(position, track_->duration) : position;
}

QJsonObject NowPlayingService::toJson() const {
    QJsonArray colours;
    for (const QColor& colour : palette_) {
        colours.append(colour.name(QColor::HexRgb));
    }
    QJsonObject json{{QStringLiteral("palette"), colours},
                     {QStringLiteral("hasArtwork"), artwork_.has_value()}};
    if (!track_) {
        json.insert(QStringLiteral("track"), QJsonValue::Null);
        return json;
    }
    static const char* const repeatNames[] = {"off", "all", "one"};
    json.insert(
        QStringLiteral("track"),
        QJsonObject{{QStringLiteral("title"), track_->title},
                    {QStringLiteral("artist"), track_->artist},
                    {QStringLiteral("album"), track_->album},
                    {QStringLiteral("duration"), track_->duration},
                    {QStringLiteral("position"), interpolatedPosition()},
                    {QStringLiteral("isPlaying"), track_->isPlaying},
                    {QStringLiteral("player"), track_->player},
                    {QStringLiteral("repeat"),
                     track_->canRepeat ? QJsonValue(QString::fromLatin1(repeatNames[int(track_->repeatMode)]))
                                       : QJsonValue(QJsonValue::Null)}});
    return json;
}

MprisPlayer* NowPlayingService::target() const {
    if (track_) {
        return players_.find(track_->player);
    }
    const std::vector<MprisPlayer*> running = players_.runningSources();
    return running.empty() ? nullptr : running.front();
}

void NowPlayingService::refreshLater(MprisPlayer* player, int delayMs) {
    QTimer::singleShot(delayMs, this, [this, name = player->name()] {
        if (MprisPlayer* still = players_.find(name)) {
            still->fetch();
        }
    });
}

void NowPlayingService::send(const QString& command) {
    MprisPlayer* player = target();
    if (player == nullptr) {
        return;
    }
    QString method;
    if (command == QLatin1StringView("playpause")) {
        method = QStringLiteral("PlayPause");
    } else if (command == QLatin1StringView("next track")) {
        method = QStringLiteral("Next");
    } else if (command == QLatin1StringView("previous track")) {
        method = QStringLiteral("Previous");
    } else {
        return;
    }
    if (method == QLatin1StringView("PlayPause") && track_) {
        NowPlayingTrack flipped = *track_;
        flipped.position = interpolatedPosition();
        flipped.isPlaying = !flipped.isPlaying;
        track_ = flipped;
        positionSampledAt_ = clock_.now();
        Q_EMIT trackChanged();
    }
    player->call(method);
    refreshLater(player, 250);
}

void NowPlayingService::seek(double seconds) {
    MprisPlayer* player = track_ ? players_.find(track_->player) : nullptr;
    if (player == nullptr) {
        return;
    }
    const double from = interpolatedPosition();
    track_->position = seconds;
    positionSampledAt_ = clock_.now();
    Q_EMIT trackChanged();
    const auto micros = qlonglong(std::max(seconds, 0.0) * 1e6);
    const QString trackId = player->reading().trackId;
    if (QDBusObjectPath(trackId).path().isEmpty()) {
        // Without a track id SetPosition is ignored; a relative seek gets there from where it was.
        player->call(QStringLiteral("Seek"), {qlonglong(micros - qlonglong(from * 1e6))});
    } else {
        player->call(QStringLiteral("SetPosition"), {QVariant::fromValue(QDBusObjectPath(trackId)), micros});
    }
    refreshLater(player, 300);
}

void NowPlayingService::cycleRepeat() {
    MprisPlayer* player = track_ && track_->canRepeat ? players_.find(track_->player) : nullptr;
    if (player == nullptr) {
        return;
    }
    const RepeatMode next = track_->repeatMode == RepeatMode::off   ? RepeatMode::all
                            : track_->repeatMode == RepeatMode::all ? RepeatMode::one
                                                                    : RepeatMode::off;
    track_->repeatMode = next;
    Q_EMIT trackChanged();
    pendingRepeat_ = PendingRepeat{next, track_->trackKey(), clock_.now() + pendingRepeatSeconds};
    player->setLoopStatus(loopStatusFromRepeatMode(next));
    refreshLater(player, 300);
}

void NowPlayingService::openPlayer() {
    MprisPlayer* player = track_ ? players_.find(track_->player) : nullptr;
    if (player == nullptr) {
        return;
    }
    if (player->canRaise() || player->desktopEntry().isEmpty()) {
        player->raise();
    } else {
        QProcess::startDetached(QStringLiteral("gtk-launch"), {player->desktopEntry()});
    }
}

} // namespace mirrowisp
