#pragma once

#include <QString>
#include <functional>
#include <optional>

namespace mirrowisp {

// The default output as the sound server reports it.
struct AudioState {
    QString device;    // the default sink's name
    double volume = 0; // average of the channels, 0 to 1 of the normal volume
    bool muted = false;
    QString bluetoothAddress; // empty for an output that is not a Bluetooth device

    bool operator==(const AudioState&) const = default;
};

// The sound server behind SystemAudio. Reports arrive on the main thread, one per change of the
// default sink, its volume or its mute; nothing (nullopt) while no server answers.
class AudioOutput {
public:
    using Report = std::function<void(const std::optional<AudioState>&)>;
    virtual ~AudioOutput() = default;
    virtual void start(Report report) = 0;
    // Writes on the current default sink; never blocks.
    virtual void setVolume(double volume) = 0;
    virtual void setMuted(bool muted) = 0;
};

} // namespace mirrowisp
