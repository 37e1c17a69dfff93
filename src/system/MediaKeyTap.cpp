#include "system/MediaKeyTap.h"

#include <algorithm>

namespace mirrowisp {

namespace {

constexpr double repeatDelay = 0.1;
constexpr double frameInterval = 1.0 / 60;
constexpr double longestGlide = 4.0;

struct KeyType {
    uint32_t type;
    MediaKeyTap::Key key;
};
constexpr KeyType keyTypes[] = {
    {0, MediaKeyTap::Key::volumeUp},      {1, MediaKeyTap::Key::volumeDown},
    {2, MediaKeyTap::Key::brightnessUp},  {3, MediaKeyTap::Key::brightnessDown},
    {7, MediaKeyTap::Key::mute},          {21, MediaKeyTap::Key::keyboardUp},
    {22, MediaKeyTap::Key::keyboardDown},
};

} // namespace

MediaKeyTap::MediaKeyTap(const Clock& clock, std::unique_ptr<Timer> repeatTimer)
    : clock_(clock), timer_(std::move(repeatTimer)) {
    timer_->fired = [this] { tick(); };
}

uint32_t MediaKeyTap::encode(Key key, uint32_t state, bool repeat) {
    const auto* found = std::find_if(std::begin(keyTypes), std::end(keyTypes),
                                     [key](const KeyType& entry) { return entry.key == key; });
    return (found->type << 16) | state | (repeat ? 1U : 0U);
}

std::optional<MediaKeyTap::Key> MediaKeyTap::keyOfType(uint32_t keyType) {
    for (const KeyType& entry : keyTypes) {
        if (entry.type == keyType) {
            return entry.key;
        }
    }
    return std::nullopt;
}

bool MediaKeyTap::process(uint32_t data1, uint32_t flags) {
    const std::optional<Key> key = keyOfType(data1 >> 16);
    if (!key) {
        return false;
    }
    const uint32_t state = data1 & 0xFF00;
    const bool repeat = (data1 & 1) != 0;
    const bool fine = (flags & shiftFlag) != 0 && (flags & optionFlag) != 0;
    if (state == pressState && !repeat) {
        if (!handler) {
            return false;
        }
        const bool handled = handler(*key, fine);
        if (handled && repeats(*key)) {
            startRepeating(*key, fine);
        }
        return handled;
    }
    if (state != pressState && heldKey_ == key) {
        stopRepeating();
    }
    return handler && wouldHandle && wouldHandle(*key);
}

void MediaKeyTap::stopRepeating() {
    timer_->stop();
    heldKey_.reset();
    gliding_ = false;
}

void MediaKeyTap::startRepeating(Key key, bool fine) {
    stopRepeating();
    heldKey_ = key;
    fine_ = fine;
    timer_->start(repeatDelay, false);
}

void MediaKeyTap::tick() {
    if (!heldKey_) {
        return;
    }
    const Timestamp now = clock_.now();
    if (!gliding_) {
        gliding_ = true;
        start_ = now;
        lastFrame_ = now;
        timer_->start(frameInterval, true);
        return;
    }
    const double elapsed = now - start_;
    if (elapsed > longestGlide) {
        stopRepeating();
        return;
    }
    double amount = (0.4 + 0.6 * std::min(2 * elapsed, 1.0)) * (now - lastFrame_);
    if (fine_) {
        amount *= 0.25;
    }
    lastFrame_ = now;
    if (glideHandler) {
        glideHandler(*heldKey_, amount);
    }
}

} // namespace mirrowisp
