#include "system/LevelControl.h"

#include <algorithm>
#include <cmath>

namespace mirrowisp {

namespace {

constexpr double ownWriteQuiet = 0.6;
constexpr double still = 0.001;
constexpr double visibleStep = 0.03;
constexpr double stepWindow = 0.8;
constexpr double anchorAge = 0.6;

} // namespace

LevelControl::LevelControl(std::unique_ptr<LevelDevice> device, const Clock& clock,
                           std::unique_ptr<Timer> pollTimer)
    : device_(std::move(device)), clock_(clock), poller_(clock, std::move(pollTimer), [this] { poll(); }) {
    device_->onHint = [this] { poller_.boost(); };
}

void LevelControl::start() {
    poller_.schedule(1.0);
}

std::optional<double> LevelControl::level() const {
    return device_->read();
}

bool LevelControl::canAdjust() const {
    return device_->canWrite() && device_->read().has_value();
}

std::optional<double> LevelControl::adjust(double delta, bool snap) {
    const std::optional<double> current = device_->read();
    if (!current || !device_->canWrite()) {
        return std::nullopt;
    }
    double next = *current + delta;
    if (snap && delta != 0) {
        const double step = std::abs(delta);
        next = std::round(next / step) * step; // std::round rounds half away from zero
    }
    next = std::clamp(next, 0.0, 1.0);
    suppressUntil_ = clock_.now() + ownWriteQuiet;
    device_->write(next);
    return next;
}

void LevelControl::poll() {
    const Timestamp now = clock_.now();
    const std::optional<double> level = device_->read();
    const bool adjustable = level.has_value() && device_->canWrite();
    if (adjustable != adjustable_) {
        adjustable_ = adjustable;
        if (onAvailabilityChange) {
            onAvailabilityChange();
        }
    }
    if (!level) {
        observedLevel_.reset();
        return;
    }
    if (!observedLevel_) {
        anchorLevel_ = level;
        anchorTime_ = now;
        observedLevel_ = level;
        return;
    }
    if (std::abs(*level - *observedLevel_) > still) {
        poller_.boost();
        if (now <= suppressUntil_) {
            anchorLevel_ = level;
            anchorTime_ = now;
        } else {
            // A movement after a still spell starts its own window: the anchor a still reading
            // left a whole idle poll ago would make every step look slow.
            if (!anchorLevel_ || now - anchorTime_ >= stepWindow) {
                anchorLevel_ = observedLevel_;
                anchorTime_ = now;
            }
            if (std::abs(*level - *anchorLevel_) >= visibleStep && now - anchorTime_ < stepWindow &&
                onExternalChange) {
                onExternalChange(*level);
            }
        }
    } else if (now - anchorTime_ > anchorAge) {
        anchorLevel_ = level;
        anchorTime_ = now;
    }
    observedLevel_ = level;
}

} // namespace mirrowisp
