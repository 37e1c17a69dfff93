#include "system/SoundEngine.h"

#include "PulseServer.h"
#include "SystemFakes.h"

#include <QProcess>
#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace mirrowisp::test {
namespace {

using Cue = CueSynth::Cue;

std::vector<float> rendered(CueSynth& synth, std::size_t frames, double rate) {
    std::vector<float> out(frames, 1.0F);
    // In pieces, as the output asks for it.
    for (std::size_t at = 0; at < frames; at += 1000) {
        synth.render(out.data() + at, std::min<std::size_t>(1000, frames - at), rate);
    }
    return out;
}

bool silent(const std::vector<float>& samples, std::size_t from, std::size_t to) {
    return std::all_of(samples.begin() + from, samples.begin() + to, [](float s) { return s == 0; });
}

float peak(const std::vector<float>& samples, std::size_t from, std::size_t to) {
    float top = 0;
    for (std::size_t i = from; i < to; ++i) {
        top = std::max(top, std::abs(samples[i]));
    }
    return top;
}

TEST(CueSynth, PlaysNotesForTheirSampleCountsThenSilence) {
    CueSynth synth;
    synth.enqueue(Cue::attention); // 0.07 s, a 0.04 s rest, 0.07 s, 0.12 s
    synth.enqueue(Cue::connected); // after it: 0.05 s, 0.1 s
    const auto out = rendered(synth, 30000, 48000);
    EXPECT_FLOAT_EQ(peak(out, 0, 3360), 0.18F);
    EXPECT_TRUE(silent(out, 3360, 3360 + 1920));
    EXPECT_GT(peak(out, 5280, 14400), 0.17F);
    EXPECT_GT(peak(out, 14400, 14400 + 2400), 0.17F); // the second cue follows at once
    EXPECT_NE(out[14400 + 7200 - 2], 0);
    EXPECT_TRUE(silent(out, 14400 + 7200, out.size()));
    EXPECT_TRUE(synth.isIdle());
}

TEST(CueSynth, ShortNotesNeverReachFullLevelAndGainScales) {
    CueSynth synth;
    synth.enqueue(Cue::connected); // 0.05 s at 2000 Hz: 100 samples
    EXPECT_LT(peak(rendered(synth, 100, 2000), 0, 100), 0.18F * 0.5F + 1e-6F);
    synth.setGain(0.5);
    synth.enqueue(Cue::done);
    EXPECT_FLOAT_EQ(peak(rendered(synth, 48000, 48000), 0, 48000), 0.09F);
}

class FakeSoundOutput final : public SoundOutput {
public:
    bool open(Render render) override {
        render_ = std::move(render);
        ++opens;
        return opens > failures;
    }
    bool isOpen() const override { return opens > failures; }
    void resume() override { playing = true; }
    void pause() override { playing = false; }
    Render render_;
    int opens = 0;
    int failures = 0;
    bool playing = false;
};

TEST(SoundEngine, OpensOnTheFirstCueAndPausesAfterTheLast) {
    auto owned = std::make_unique<FakeSoundOutput>();
    FakeSoundOutput& output = *owned;
    output.failures = 1;
    FakeTimer::State timer;
    Timer* pause = nullptr;
    SoundEngine engine(std::move(owned), [&] {
        auto made = std::make_unique<FakeTimer>(timer);
        pause = made.get();
        return made;
    });
    engine.setEnabled(false);
    engine.play(Cue::done);
    EXPECT_EQ(output.opens, 0);
    engine.setEnabled(true);
    engine.play(Cue::done); // the output fails to open: tried again at the next cue
    engine.play(Cue::lowBattery);
    EXPECT_EQ(output.opens, 2);
    EXPECT_TRUE(output.playing);
    EXPECT_DOUBLE_EQ(timer.interval, 0.25 + 1.5);
    std::vector<float> out(13000);
    output.render_(out.data(), out.size(), 48000);
    EXPECT_NE(out[0], 0);     // the cue dropped by the failed open was not kept
    EXPECT_EQ(out[12000], 0); // 0.25 s at 48 kHz
    FakeTimer::fire(timer, *pause);
    EXPECT_FALSE(output.playing);
}

// One second of the null sink's monitor from the moment `act` runs, as mono samples at 48 kHz.
std::vector<float> record(const std::function<void()>& act) {
    QProcess recorder;
    recorder.start(QStringLiteral("parec"),
                   {QStringLiteral("-d"), QStringLiteral("wired.monitor"),
                    QStringLiteral("--format=float32le"), QStringLiteral("--channels=1"),
                    QStringLiteral("--rate=48000"), QStringLiteral("--raw")});
    QByteArray recorded;
    const auto take = [&] {
        return recorder.waitForReadyRead(10), recorded += recorder.readAllStandardOutput();
    };
    if (!waitUntil([&] { return !take().isEmpty(); }, 10000)) {
        return {};
    }
    act();
    const qsizetype wanted = recorded.size() + 48000 * 4;
    waitUntil([&] { return take().size() >= wanted; }, 10000);
    recorder.kill();
    recorder.waitForFinished();
    std::vector<float> samples(static_cast<std::size_t>(recorded.size()) / 4);
    std::memcpy(samples.data(), recorded.constData(), samples.size() * 4);
    return samples;
}

// Where the cue begins in a recording; nothing when it is silent.
std::optional<std::size_t> cueStart(const std::vector<float>& samples) {
    const auto first =
        std::find_if(samples.begin(), samples.end(), [](float s) { return std::abs(s) > 0.05F; });
    return first == samples.end() ? std::nullopt
                                  : std::optional(static_cast<std::size_t>(first - samples.begin()));
}

// A cue through a real sound server, recorded back from the null sink's monitor.
TEST(SoundEnginePulse, TheRecordingHoldsTheCuesNotes) {
    PulseServer server;
    ASSERT_TRUE(server.start());
    SoundEngine engine(SoundEngine::pulseOutput());
    const auto samples = record([&] { engine.play(Cue::connected); });
    const auto start = cueStart(samples);
    ASSERT_TRUE(start);
    ASSERT_GT(samples.size(), *start + 7200);
    // The median period between rising edges within each note, away from its edges: a moment of
    // underrun on a busy machine leaves a gap, not a different pitch.
    const auto frequency = [&](double from, double to) {
        std::vector<std::size_t> edges;
        const auto a = *start + static_cast<std::size_t>(from * 48000);
        const auto b = *start + static_cast<std::size_t>(to * 48000);
        for (std::size_t i = a + 1; i < b; ++i) {
            if (samples[i - 1] < 0 && samples[i] >= 0) {
                edges.push_back(i);
            }
        }
        std::vector<double> periods;
        for (std::size_t i = 1; i < edges.size(); ++i) {
            periods.push_back(static_cast<double>(edges[i] - edges[i - 1]));
        }
        if (periods.empty()) {
            return 0.0;
        }
        std::nth_element(periods.begin(), periods.begin() + periods.size() / 2, periods.end());
        return 48000 / periods[periods.size() / 2];
    };
    EXPECT_NEAR(frequency(0.005, 0.045), 659.25, 659.25 * 0.05);
    EXPECT_NEAR(frequency(0.06, 0.14), 987.77, 987.77 * 0.05);
}

TEST(SoundEnginePulse, ASoundServerThatGoesAwayIsFoundAgainAtTheNextCue) {
    LogCapture log;
    SoundEngine engine(SoundEngine::pulseOutput());
    {
        PulseServer first;
        ASSERT_TRUE(first.start());
        engine.play(Cue::done);
    }
    ASSERT_TRUE(
        waitUntil([] { return LogCapture::lines().join(u'\n').contains(text("sound engine failed")); }));
    PulseServer second;
    ASSERT_TRUE(second.start());
    EXPECT_TRUE(cueStart(record([&] { engine.play(Cue::charging); })));
}

} // namespace
} // namespace mirrowisp::test
