#pragma once

#include "base/AgentKind.h"
#include "base/Clock.h"

#include <QHash>
#include <deque>
#include <optional>

namespace mirrowisp {

// How long agents wait on our hook: from the moment the tool started to the moment the app answered,
// over the last `kept` events of each agent. Decisions are left out: they wait for the user. Main thread.
class HookTimings {
public:
    static constexpr std::size_t kept = 100;

    struct Summary {
        int count = 0;
        double medianMs = 0;
        double p95Ms = 0;
        double arrivalMedianMs = 0; // tool start to the app taking the event up
        bool operator==(const Summary&) const = default;
    };

    void add(AgentKind agent, Timestamp started, Timestamp arrived, Timestamp answered);
    std::optional<Summary> summary(AgentKind agent) const;

private:
    struct Sample {
        double roundTripMs;
        double arrivalMs;
    };
    QHash<AgentKind, std::deque<Sample>> samples_;
};

} // namespace mirrowisp
