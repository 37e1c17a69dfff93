#pragma once

#include "base/Clock.h"
#include "system/AudioOutput.h"
#include "system/Timer.h"

#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

// The output volume and mute, and which changes of them come from elsewhere: the program's own
// writes, a switch of the default output and changes too small to see report nothing, and a burst
// reports once, with its last values, 0.3 s after it ends.
class SystemAudio {
public:
    SystemAudio(std::unique_ptr<AudioOutput> output, const Clock& clock, std::unique_ptr<Timer> debounce);

    void start();

    // No server answers: the volume keys pass to the desktop.
    bool isAvailable() const { return lastState_.has_value(); }
    // 0 and unmuted while unavailable.
    double volume() const { return lastState_ ? lastState_->volume : 0; }
    bool isMuted() const { return lastState_ && lastState_->muted; }
    void setVolume(double volume);
    void setMuted(bool muted);

    // A change from elsewhere: volume and muted.
    std::function<void(double, bool)> onChange;
    // A new default output that is a Bluetooth device: its address.
    std::function<void(const QString&)> onOutputChange;
    // The server came or went.
    std::function<void(bool)> onAvailabilityChange;

private:
    void notify(const std::optional<AudioState>& state);

    std::unique_ptr<AudioOutput> output_;
    const Clock& clock_;
    std::unique_ptr<Timer> debounce_;
    Timestamp suppressUntil_ = 0;
    std::optional<AudioState> lastState_;
    AudioState pending_;
};

} // namespace mirrowisp
