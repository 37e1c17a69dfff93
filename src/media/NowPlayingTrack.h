#pragma once

#include <QString>
#include <optional>

namespace mirrowisp {

enum class MediaSource { music, spotify };
enum class RepeatMode { off, all, one };

// One reading of a player: what plays, where it stands, and how it repeats.
struct NowPlayingTrack {
    QString title;
    QString artist;
    QString album;
    double duration = 0; // seconds
    double position = 0; // seconds, at the moment the reading was taken
    bool isPlaying = false;
    MediaSource source = MediaSource::music;
    RepeatMode repeatMode = RepeatMode::off;
    std::optional<bool> isFavorite;

    bool operator==(const NowPlayingTrack&) const = default;
};

} // namespace mirrowisp
