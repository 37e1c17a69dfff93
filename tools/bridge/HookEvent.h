#pragma once

#include "AgentKind.h"

#include <optional>
#include <string>
#include <string_view>

namespace bridge {

struct PreparedEvent {
    // The bytes to send instead of the agent's own, present only when something had to change: events
    // that already speak the app's vocabulary travel byte for byte.
    std::optional<std::string> rewritten;
    // Whether the agent waits for an answer on our standard output.
    bool expectsReply = false;
};

// Puts an agent's hook event into the app's vocabulary: its name under `hook_event_name`, and the few
// keys the app needs where an agent spells them differently. A status-line call becomes "StatusLine".
PreparedEvent prepareEvent(AgentKind agent, std::string_view input, bool statusLine);

} // namespace bridge
