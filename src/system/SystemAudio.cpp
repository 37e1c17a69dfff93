#include "system/SystemAudio.h"

#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

constexpr double writeQuiet = 0.1;  // the server's echo of our own write
constexpr double switchQuiet = 2.5; // a new output settling its levels
constexpr double deadBand = 0.001;
constexpr double debounceDelay = 0.3;

} // namespace

SystemAudio::SystemAudio(std::unique_ptr<AudioOutput> output, const Clock& clock,
                         std::unique_ptr<Timer> debounce)
    : output_(std::move(output)), clock_(clock), debounce_(std::move(debounce)) {
    debounce_->fired = [this] {
        if (clock_.now() > suppressUntil_ && onChange) {
            onChange(pending_.volume, pending_.muted);
        }
    };
}

void SystemAudio::start() {
    output_->start([this](const std::optional<AudioState>& state) { notify(state); });
}

void SystemAudio::setVolume(double volume) {
    if (!lastState_) {
        return;
    }
    volume = std::clamp(volume, 0.0, 1.0);
    suppressUntil_ = clock_.now() + writeQuiet;
    output_->setVolume(volume);
    // Our own value, so the server's echo falls in the dead band whenever it arrives.
    lastState_->volume = volume;
    if (volume > 0 && lastState_->muted) {
        setMuted(false);
    }
}

void SystemAudio::setMuted(bool muted) {
    if (!lastState_) {
        return;
    }
    suppressUntil_ = clock_.now() + writeQuiet;
    output_->setMuted(muted);
    lastState_->muted = muted;
}

void SystemAudio::notify(const std::optional<AudioState>& state) {
    const bool wasAvailable = lastState_.has_value();
    if (!state) {
        debounce_->stop();
        lastState_.reset();
        if (wasAvailable && onAvailabilityChange) {
            onAvailabilityChange(false);
        }
        return;
    }
    if (!lastState_) {
        lastState_ = state;
        if (onAvailabilityChange) {
            onAvailabilityChange(true);
        }
        return;
    }
    if (state->device != lastState_->device) {
        suppressUntil_ = clock_.now() + switchQuiet;
        debounce_->stop();
        lastState_ = state;
        if (!state->bluetoothAddress.isEmpty() && onOutputChange) {
            onOutputChange(state->bluetoothAddress);
        }
        return;
    }
    const bool still =
        std::abs(state->volume - lastState_->volume) <= deadBand && state->muted == lastState_->muted;
    lastState_ = state;
    if (still || clock_.now() <= suppressUntil_) {
        return;
    }
    pending_ = *state;
    debounce_->start(debounceDelay, false);
}

} // namespace mirrowisp
