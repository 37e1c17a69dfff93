#pragma once

#include "system/CueSynth.h"
#include "system/SoundOutput.h"
#include "system/Timer.h"

#include <memory>

namespace mirrowisp {

// Plays the app's cues. The output opens at the first cue and pauses 1.5 s after the last note;
// a cue that comes while another plays is heard after it.
class SoundEngine {
public:
    using Cue = CueSynth::Cue;

    explicit SoundEngine(std::unique_ptr<SoundOutput> output, const TimerFactory& timers = makeQtTimer);
    ~SoundEngine();
    SoundEngine(const SoundEngine&) = delete;
    SoundEngine& operator=(const SoundEngine&) = delete;

    // libpulse on the default output.
    static std::unique_ptr<SoundOutput> pulseOutput();

    // Returns at once. Dropped while sounds are off.
    void play(Cue cue);
    void setEnabled(bool enabled) { enabled_ = enabled; }
    void setVolume(double volume) { volume_ = volume; }

private:
    std::shared_ptr<CueSynth> synth_;
    std::unique_ptr<SoundOutput> output_;
    std::unique_ptr<Timer> pause_;
    bool enabled_ = true;
    double volume_ = 1.0;
};

} // namespace mirrowisp
