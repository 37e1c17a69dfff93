#include "system/SoundEngine.h"

#include "base/Log.h"
#include "system/linux/PulsePlayback.h"

#include <algorithm>

namespace mirrowisp {

namespace {

constexpr double pauseAfter = 1.5;

} // namespace

SoundEngine::SoundEngine(std::unique_ptr<SoundOutput> output, const TimerFactory& timers)
    : synth_(std::make_shared<CueSynth>()), output_(std::move(output)), pause_(timers()) {
    pause_->fired = [this] { output_->pause(); };
}

SoundEngine::~SoundEngine() = default;

std::unique_ptr<SoundOutput> SoundEngine::pulseOutput() {
    return std::make_unique<PulsePlayback>();
}

void SoundEngine::play(Cue cue) {
    if (!enabled_) {
        return;
    }
    if (!output_->isOpen()) {
        // The output thread holds the synth weakly: the engine may go first.
        const bool began = output_->open(
            [weak = std::weak_ptr<CueSynth>(synth_)](float* out, std::size_t frames, double rate) {
                if (auto synth = weak.lock()) {
                    synth->render(out, frames, rate);
                } else {
                    std::fill(out, out + frames, 0.0F);
                }
            });
        if (!began) {
            return;
        }
    }
    synth_->setGain(std::clamp(volume_, 0.0, 1.0));
    output_->resume();
    synth_->enqueue(cue);
    pause_->start(CueSynth::seconds(cue) + pauseAfter, false);
}

} // namespace mirrowisp
