#pragma once

// Kept free of <numbers>: moc reads this header through the animation object and cannot parse it.

namespace mirrowisp {

// A spring described by how long it takes (`response`, seconds per undamped oscillation) and how
// much it rings (`dampingFraction`, 1 is critical). Unit mass, stiffness (2π/response)², damping
// 4π·dampingFraction/response. It moves from 0 to 1 starting at rest.
struct Spring {
    double response = 0.5;
    double dampingFraction = 1.0;
    double delay = 0; // seconds before it starts

    double stiffness() const;
    double damping() const;
    double angularFrequency() const;

    // Where the spring stands `t` seconds after it started (the delay not counted).
    double value(double t) const;
    // Seconds until it stays within `tolerance` of 1 for good.
    double settlingTime(double tolerance = 0.001) const;

    bool operator==(const Spring&) const = default;
};

} // namespace mirrowisp
