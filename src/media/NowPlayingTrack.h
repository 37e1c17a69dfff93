#pragma once

#include <QString>
#include <optional>

namespace mirrowisp {

enum class RepeatMode { off, all, one };

// One reading of a player: what plays, where it stands, and how it repeats.
struct NowPlayingTrack {
    QString title;
    QString artist;
    QString album;
    double duration = 0; // seconds; 0 when the player does not know
    double position = 0; // seconds, at the moment the reading was taken
    bool isPlaying = false;
    // The player's bus name (org.mpris.MediaPlayer2.*): where commands for this track go.
    QString player;
    RepeatMode repeatMode = RepeatMode::off;
    // Whether the player reports a loop status at all; without one there is no repeat control.
    bool canRepeat = false;
    double rate = 1.0; // playback speed, for extrapolating the position
    std::optional<bool> isFavorite;

    bool operator==(const NowPlayingTrack&) const = default;

    // Names the track apart from its position and state: artwork is loaded once per key.
    QString trackKey() const {
        return player + QLatin1Char('|') + title + QLatin1Char('|') + artist + QLatin1Char('|') + album;
    }
};

} // namespace mirrowisp
