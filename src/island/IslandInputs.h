#pragma once

#include "app/TransientActivity.h"
#include "media/NowPlayingTrack.h"
#include "widgets/CalendarItem.h"

#include <QtGlobal>
#include <optional>
#include <vector>

namespace mirrowisp {

class AgentSession;
class AppModel;

// Everything the closed island's rules read, gathered in one place so the rules are plain functions
// and can be exercised without building the whole application.
struct IslandInputs {
    std::optional<TransientActivity> transient;
    qint64 transientID = 0;
    // The session that waits for the user, if any; only read while resolving.
    const AgentSession* attention = nullptr;
    // The store's sessions in its display order; only read while resolving.
    std::vector<const AgentSession*> orderedSessions;
    std::optional<CalendarItem> liveEvent;
    std::optional<NowPlayingTrack> nowPlaying;

    static IslandInputs from(AppModel& app);

    bool isMeetingLive() const { return liveEvent.has_value(); }
    // A paused track counts as silence.
    bool isMusicLive() const { return nowPlaying.has_value() && nowPlaying->isPlaying; }
};

} // namespace mirrowisp
