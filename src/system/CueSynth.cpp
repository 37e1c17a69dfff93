#include "system/CueSynth.h"

#include <QString>
#include <algorithm>

namespace mirrowisp {

namespace {

using Note = CueSynth::Note;

constexpr Note sessionStartNotes[] = {{523.25, 0.06}, {783.99, 0.09}};
constexpr Note attentionNotes[] = {{880, 0.07}, {0, 0.04}, {880, 0.07}, {1174.66, 0.12}};
constexpr Note doneNotes[] = {{523.25, 0.06}, {659.25, 0.06}, {783.99, 0.06}, {1046.5, 0.16}};
constexpr Note lowBatteryNotes[] = {{392, 0.09}, {311.13, 0.16}};
constexpr Note connectedNotes[] = {{659.25, 0.05}, {987.77, 0.1}};
constexpr Note chargingNotes[] = {{440, 0.05}, {554.37, 0.05}, {659.25, 0.1}};

constexpr float amplitude = 0.18F;
// A note fades out linearly over its last samples, so it ends without a click.
constexpr double fadeSamples = 200;

} // namespace

std::span<const Note> CueSynth::notes(Cue cue) {
    switch (cue) {
    case Cue::sessionStart:
        return sessionStartNotes;
    case Cue::attention:
        return attentionNotes;
    case Cue::done:
        return doneNotes;
    case Cue::lowBattery:
        return lowBatteryNotes;
    case Cue::connected:
        return connectedNotes;
    case Cue::charging:
        return chargingNotes;
    }
    return {};
}

double CueSynth::duty(Cue cue) {
    return cue == Cue::attention ? 0.25 : 0.5;
}

double CueSynth::seconds(Cue cue) {
    double total = 0;
    for (const Note& note : notes(cue)) {
        total += note.seconds;
    }
    return total;
}

std::optional<CueSynth::Cue> CueSynth::cueNamed(const QString& name) {
    static const std::pair<const char*, Cue> names[] = {
        {"sessionStart", Cue::sessionStart}, {"attention", Cue::attention}, {"done", Cue::done},
        {"lowBattery", Cue::lowBattery},     {"connected", Cue::connected}, {"charging", Cue::charging}};
    for (const auto& [text, cue] : names) {
        if (name == QLatin1StringView(text)) {
            return cue;
        }
    }
    return std::nullopt;
}

bool CueSynth::enqueue(Cue cue) {
    const auto cueNotes = notes(cue);
    const std::size_t tail = tail_.load(std::memory_order_relaxed);
    const std::size_t head = head_.load(std::memory_order_acquire);
    if (tail - head + cueNotes.size() > capacity) {
        return false;
    }
    for (std::size_t i = 0; i < cueNotes.size(); ++i) {
        ring_[(tail + i) % capacity] = Queued{cueNotes[i].seconds, cueNotes[i].frequency, duty(cue)};
    }
    tail_.store(tail + cueNotes.size(), std::memory_order_release);
    return true;
}

bool CueSynth::isIdle() const {
    return head_.load(std::memory_order_acquire) == tail_.load(std::memory_order_acquire);
}

void CueSynth::render(float* out, std::size_t frames, double sampleRate) {
    const float gain = gain_.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < frames; ++i) {
        if (remaining_ <= 0) {
            const std::size_t head = head_.load(std::memory_order_relaxed);
            if (head == tail_.load(std::memory_order_acquire)) {
                out[i] = 0;
                continue;
            }
            const Queued& note = ring_[head % capacity];
            frequency_ = note.frequency;
            duty_ = note.duty;
            remaining_ = static_cast<long>(note.seconds * sampleRate);
            phase_ = 0;
            head_.store(head + 1, std::memory_order_release);
            if (remaining_ <= 0) {
                out[i] = 0;
                continue;
            }
        }
        --remaining_;
        if (frequency_ <= 0) {
            out[i] = 0;
            continue;
        }
        phase_ += frequency_ / sampleRate;
        if (phase_ >= 1) {
            phase_ -= 1;
        }
        const auto envelope =
            static_cast<float>(std::min(1.0, static_cast<double>(remaining_) / fadeSamples));
        out[i] = gain * envelope * (phase_ < duty_ ? amplitude : -amplitude);
    }
}

} // namespace mirrowisp
