#pragma once

namespace mirrowisp {

// How the open panel's content looks at `progress` of its reveal (0 hidden, 1 in place): it comes
// into focus, grows from just below full size at its top edge, and settles down from slightly above.
struct RevealEffect {
    double progress = 1;

    constexpr double blurRadius() const { return 8 * (1 - progress); }
    // Anchored at the top edge.
    constexpr double scale() const { return 0.94 + 0.06 * progress; }
    constexpr double yOffset() const { return -8 * (1 - progress); }
};

// A wing while the panel is open: shrunk at its centre and slid in behind the notch.
struct WingCollapse {
    static constexpr double collapsedScale = 0.4;
    static constexpr double slideShare = 0.75;

    bool collapsed = false;

    constexpr double scale() const { return collapsed ? collapsedScale : 1.0; }
    // How far a wing of `wingWidth` moves; `towardsRight` for the left wing, whose notch lies right.
    constexpr double xOffset(double wingWidth, bool towardsRight) const {
        if (!collapsed) {
            return 0;
        }
        return (towardsRight ? 1 : -1) * slideShare * wingWidth;
    }
};

} // namespace mirrowisp
