#pragma once

#include "media/NowPlayingTrack.h"

#include <QString>
#include <QVariantMap>
#include <optional>

namespace mirrowisp {

// What one player's org.mpris.MediaPlayer2.Player properties say, in the app's terms.
struct MprisReading {
    std::optional<NowPlayingTrack> track; // nothing when stopped, or when the metadata is unusable
    QString trackId;                      // mpris:trackid, which SetPosition needs
    QString artUrl;                       // mpris:artUrl, possibly empty
};

// Reads the properties as GetAll gives them (nested values may still be D-Bus arguments). A value of
// the wrong type counts as absent; texts are cut to a length a view can show.
MprisReading readMprisProperties(const QString& player, const QVariantMap& properties);

// The player's LoopStatus, "None", "Track" or "Playlist"; anything else counts as off.
RepeatMode repeatModeFromLoopStatus(const QString& status);
QString loopStatusFromRepeatMode(RepeatMode mode);

} // namespace mirrowisp
