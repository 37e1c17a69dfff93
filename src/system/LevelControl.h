#pragma once

#include "base/Clock.h"
#include "system/AdaptivePoll.h"
#include "system/LevelDevice.h"

#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

// The screen brightness or the keyboard light: steps that snap to a grid, and a poll that tells a
// quick change from elsewhere (0.03 within 0.8 s) from the program's own writes and from slow drift.
class LevelControl {
public:
    LevelControl(std::unique_ptr<LevelDevice> device, const Clock& clock, std::unique_ptr<Timer> pollTimer);

    // Starts polling at the idle rate.
    void start();
    std::optional<double> level() const;
    // Readable and writable: its keys are ours.
    bool canAdjust() const;
    // The new level, or nothing when the control is unavailable.
    std::optional<double> adjust(double delta, bool snap);
    void poll();
    const AdaptivePoll& poller() const { return poller_; }

    std::function<void(double)> onExternalChange;
    // The control became adjustable or stopped being so (seen by the poll).
    std::function<void()> onAvailabilityChange;

private:
    std::unique_ptr<LevelDevice> device_;
    const Clock& clock_;
    AdaptivePoll poller_;
    std::optional<double> observedLevel_;
    std::optional<double> anchorLevel_;
    Timestamp anchorTime_ = 0;
    Timestamp suppressUntil_ = 0;
    bool adjustable_ = false;
};

} // namespace mirrowisp
