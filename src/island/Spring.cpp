#include "island/Spring.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace mirrowisp {

namespace {
constexpr double step = 0.001;   // one millisecond
constexpr double horizon = 10.0; // no spring of the island rings longer than this
} // namespace

double Spring::angularFrequency() const {
    return 2 * std::numbers::pi / response;
}

double Spring::stiffness() const {
    return angularFrequency() * angularFrequency();
}

double Spring::damping() const {
    return 4 * std::numbers::pi * dampingFraction / response;
}

double Spring::value(double t) const {
    if (t <= 0 || response <= 0) {
        return t <= 0 ? 0.0 : 1.0;
    }
    const double omega = angularFrequency();
    const double zeta = std::max(0.0, dampingFraction);
    if (zeta < 1) {
        const double damped = omega * std::sqrt(1 - zeta * zeta);
        const double decay = std::exp(-zeta * omega * t);
        return 1 - decay * (std::cos(damped * t) + zeta * omega / damped * std::sin(damped * t));
    }
    if (zeta == 1) {
        return 1 - std::exp(-omega * t) * (1 + omega * t);
    }
    // Over-damped: two real roots, both negative.
    const double root = omega * std::sqrt(zeta * zeta - 1);
    const double r1 = -zeta * omega + root;
    const double r2 = -zeta * omega - root;
    return 1 - (r2 * std::exp(r1 * t) - r1 * std::exp(r2 * t)) / (r2 - r1);
}

double Spring::settlingTime(double tolerance) const {
    // The last moment the spring is still outside the band, found by walking back from the horizon.
    for (double t = horizon; t > 0; t -= step) {
        if (std::abs(value(t) - 1) >= tolerance) {
            return std::min(horizon, t + step);
        }
    }
    return 0;
}

} // namespace mirrowisp
