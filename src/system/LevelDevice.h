#pragma once

#include <functional>
#include <optional>

namespace mirrowisp {

// A light with a level from 0 to 1: the screen's backlight or the keyboard's.
class LevelDevice {
public:
    virtual ~LevelDevice() = default;
    // Nothing when the device is missing or unreadable.
    virtual std::optional<double> read() = 0;
    // Whether a write can reach the device at all.
    virtual bool canWrite() const = 0;
    // Hands the level to the device; never blocks.
    virtual void write(double level) = 0;
    // Called when the device says it changed, so the poll can look sooner; optional.
    std::function<void()> onHint;
};

} // namespace mirrowisp
