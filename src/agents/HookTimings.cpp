#include "agents/HookTimings.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace mirrowisp {

namespace {

// The nearest-rank percentile of sorted values.
double percentile(const std::vector<double>& sorted, double fraction) {
    const auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

} // namespace

void HookTimings::add(AgentKind agent, Timestamp started, Timestamp arrived, Timestamp answered) {
    // A tool clock far off (another machine's time, a bad value) tells nothing about the hook.
    const double roundTrip = (answered - started) * 1000.0;
    if (!std::isfinite(roundTrip) || roundTrip < 0 || roundTrip > 60'000) {
        return;
    }
    std::deque<Sample>& list = samples_[agent];
    list.push_back({roundTrip, std::max(0.0, (arrived - started) * 1000.0)});
    if (list.size() > kept) {
        list.pop_front();
    }
}

std::optional<HookTimings::Summary> HookTimings::summary(AgentKind agent) const {
    const auto it = samples_.constFind(agent);
    if (it == samples_.constEnd() || it->empty()) {
        return std::nullopt;
    }
    std::vector<double> trips;
    std::vector<double> arrivals;
    for (const Sample& sample : *it) {
        trips.push_back(sample.roundTripMs);
        arrivals.push_back(sample.arrivalMs);
    }
    std::sort(trips.begin(), trips.end());
    std::sort(arrivals.begin(), arrivals.end());
    return Summary{static_cast<int>(trips.size()), percentile(trips, 0.5), percentile(trips, 0.95),
                   percentile(arrivals, 0.5)};
}

} // namespace mirrowisp
