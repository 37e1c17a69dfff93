#pragma once

#include "base/Clock.h"

#include <optional>

namespace mirrowisp {

// How long a lost connection waits before it tries again: 1 s, doubling up to a minute, and back
// to 1 s once a connection has held for a minute, so a flapping network is not hammered and a
// one-off drop is mended at once.
class Backoff {
public:
    static constexpr double firstDelay = 1.0;
    static constexpr double longestDelay = 60.0;
    static constexpr double stableAfter = 60.0;

    // The connection came up at `now`.
    void connected(Timestamp now) { connectedAt_ = now; }
    // An attempt failed, or the connection ended, at `now`: the seconds to wait before the next try.
    double failed(Timestamp now);

private:
    int failures_ = 0;
    std::optional<Timestamp> connectedAt_;
};

} // namespace mirrowisp
