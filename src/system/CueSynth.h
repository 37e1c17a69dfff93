#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <optional>
#include <span>

class QString;

namespace mirrowisp {

// The app's cues as square-wave notes, rendered sample by sample. One thread queues cues, the audio
// thread renders; they share only a fixed ring of notes, so rendering never locks or allocates.
class CueSynth {
public:
    enum class Cue { sessionStart, attention, done, lowBattery, connected, charging };
    struct Note {
        double frequency; // 0 is a rest
        double seconds;
    };

    static std::span<const Note> notes(Cue cue);
    static double duty(Cue cue);
    static double seconds(Cue cue);
    // By its name as the control interface spells it: "sessionStart", "attention", ...
    static std::optional<Cue> cueNamed(const QString& name);

    // Queues the cue after whatever still plays; false (nothing queued) when the ring is full.
    bool enqueue(Cue cue);
    // Fills `frames` mono samples; silence once the notes are over.
    void render(float* out, std::size_t frames, double sampleRate);
    void setGain(double gain) { gain_.store(static_cast<float>(gain), std::memory_order_relaxed); }
    bool isIdle() const;

private:
    struct Queued {
        double seconds = 0;
        double frequency = 0;
        double duty = 0.5;
    };
    static constexpr std::size_t capacity = 64;

    std::array<Queued, capacity> ring_{};
    std::atomic<std::size_t> head_{0}; // next to play, moved by the audio thread
    std::atomic<std::size_t> tail_{0}; // next free, moved by the queueing thread
    std::atomic<float> gain_{1.0F};
    // The audio thread's own.
    double phase_ = 0;
    long remaining_ = 0;
    double frequency_ = 0;
    double duty_ = 0.5;
};

} // namespace mirrowisp
