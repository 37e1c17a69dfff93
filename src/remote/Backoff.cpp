#include "remote/Backoff.h"

#include <algorithm>
#include <cmath>

namespace mirrowisp {

double Backoff::failed(Timestamp now) {
    if (connectedAt_ && now - *connectedAt_ >= stableAfter) {
        failures_ = 0;
    }
    connectedAt_.reset();
    const double delay = std::min(longestDelay, firstDelay * std::exp2(failures_));
    if (delay < longestDelay) {
        ++failures_; // stops growing at the ceiling, so the exponent never runs away
    }
    return delay;
}

} // namespace mirrowisp
