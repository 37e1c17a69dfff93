#pragma once

#include "base/Clock.h"
#include "system/Timer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

// The volume, brightness and keyboard light keys: a press is one step, a held key glides after a
// short delay at 60 frames a second, for four seconds at most. Fed with system key events in their
// classic encoding (key type in bits 16 and up, state in 0xFF00, repeat flag in bit 0), whatever
// the source.
class MediaKeyTap {
public:
    enum class Key { volumeUp, volumeDown, mute, brightnessUp, brightnessDown, keyboardUp, keyboardDown };

    static constexpr uint32_t pressState = 0xA00;
    static constexpr uint32_t releaseState = 0xB00;
    static constexpr uint32_t shiftFlag = 0x20000;
    static constexpr uint32_t optionFlag = 0x80000;

    MediaKeyTap(const Clock& clock, std::unique_ptr<Timer> repeatTimer);

    static uint32_t encode(Key key, uint32_t state, bool repeat);
    static std::optional<Key> keyOfType(uint32_t keyType);
    static bool repeats(Key key) { return key != Key::mute; }

    // True swallows the event, false passes it on to the desktop.
    bool process(uint32_t data1, uint32_t flags);
    void stopRepeating();
    std::optional<Key> heldKey() const { return heldKey_; }

    // One step; true when it was handled.
    std::function<bool(Key, bool fine)> handler;
    // One frame of a glide.
    std::function<void(Key, double amount)> glideHandler;
    // Keeps a release or repeat paired with its press without acting.
    std::function<bool(Key)> wouldHandle;

private:
    void startRepeating(Key key, bool fine);
    void tick();

    const Clock& clock_;
    std::unique_ptr<Timer> timer_;
    std::optional<Key> heldKey_;
    bool fine_ = false;
    bool gliding_ = false; // past the delay, in frames
    Timestamp start_ = 0;
    Timestamp lastFrame_ = 0;
};

} // namespace mirrowisp
