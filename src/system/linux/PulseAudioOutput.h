#pragma once

#include "system/AudioOutput.h"

#include <memory>

namespace mirrowisp {

// The default sink of the PulseAudio server (or PipeWire's pulse server), through libpulse's
// asynchronous API on a thread of its own. Subscribes to sink and server events; a server that goes
// away is looked for again every two seconds.
class PulseAudioOutput final : public AudioOutput {
public:
    PulseAudioOutput();
    ~PulseAudioOutput() override;
    PulseAudioOutput(const PulseAudioOutput&) = delete;
    PulseAudioOutput& operator=(const PulseAudioOutput&) = delete;

    void start(Report report) override;
    void setVolume(double volume) override;
    void setMuted(bool muted) override;

    struct Loop;

private:
    std::unique_ptr<Loop> loop_;
};

} // namespace mirrowisp
