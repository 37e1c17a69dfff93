// The cue renderer for one second of audio at 48 kHz beside a plain fill of the same buffer (target:
// under 1 ms), then the latency from play() to the first sample of the cue handed to a private
// PulseAudio daemon (target: under 100 ms). Usage: bench_sound [--rounds N] (default 20).
#include "system/SoundEngine.h"
#include "system/linux/PulsePlayback.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

using namespace mirrowisp;
using Clock = std::chrono::steady_clock;

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// PulseAudio's stream, noting when the first sound leaves the renderer.
class TimedOutput final : public SoundOutput {
public:
    bool open(Render render) override {
        return inner_.open([this, render = std::move(render)](float* out, std::size_t frames, double rate) {
            render(out, frames, rate);
            if (!heard_.load() && std::any_of(out, out + frames, [](float s) { return s != 0; })) {
                heardAt_ = Clock::now();
                heard_ = true;
            }
        });
    }
    bool isOpen() const override { return inner_.isOpen(); }
    void resume() override { inner_.resume(); }
    void pause() override { inner_.pause(); }
    void arm() { heard_ = false; }
    bool heard() const { return heard_.load(); }
    Clock::time_point heardAt() const { return heardAt_; }

private:
    PulsePlayback inner_;
    std::atomic<bool> heard_{false};
    Clock::time_point heardAt_;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int rounds = args.size() > 2 && args[1] == QLatin1String("--rounds") ? args[2].toInt() : 20;

    std::vector<float> buffer(48000);
    std::vector<double> renderMs;
    std::vector<double> fillMs;
    for (int i = 0; i < rounds; ++i) {
        CueSynth synth;
        // Enough notes for the whole second: the renderer never idles.
        for (int cue = 0; cue < 4; ++cue) {
            synth.enqueue(CueSynth::Cue::done);
        }
        auto start = Clock::now();
        synth.render(buffer.data(), buffer.size(), 48000);
        renderMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        start = Clock::now();
        std::fill(buffer.begin(), buffer.end(), static_cast<float>(i));
        fillMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::printf("render 1 s at 48 kHz: median %.3f ms (plain fill %.3f ms), target < 1 ms\n",
                median(renderMs), median(fillMs));

    QTemporaryDir dir;
    const QString socket = dir.path() + QStringLiteral("/native");
    qputenv("PULSE_SERVER", (QStringLiteral("unix:") + socket).toUtf8());
    qputenv("PULSE_RUNTIME_PATH", dir.path().toUtf8());
    qputenv("HOME", dir.path().toUtf8());
    QProcess daemon;
    daemon.start(QStringLiteral("pulseaudio"),
                 {QStringLiteral("-n"), QStringLiteral("--daemonize=no"),
                  QStringLiteral("--exit-idle-time=-1"), QStringLiteral("-L"),
                  QStringLiteral("module-native-protocol-unix auth-anonymous=1 socket=") + socket,
                  QStringLiteral("-L"), QStringLiteral("module-null-sink sink_name=bench")});
    for (int i = 0; i < 100 && !QFile::exists(socket); ++i) {
        QThread::msleep(50);
    }
    auto owned = std::make_unique<TimedOutput>();
    TimedOutput& output = *owned;
    SoundEngine engine(std::move(owned));
    std::vector<double> latencyMs;
    for (int i = 0; i < std::min(rounds, 10); ++i) {
        output.arm();
        const auto start = Clock::now();
        engine.play(CueSynth::Cue::connected);
        for (int wait = 0; wait < 400 && !output.heard(); ++wait) {
            QThread::msleep(5);
        }
        if (!output.heard()) {
            std::printf("no sound server answered\n");
            break;
        }
        latencyMs.push_back(std::chrono::duration<double, std::milli>(output.heardAt() - start).count());
        QThread::msleep(300); // the cue ends; the next one starts from a quiet stream
    }
    if (!latencyMs.empty()) {
        std::printf("play to first sample: median %.1f ms over %zu cues, target < 100 ms\n",
                    median(latencyMs), latencyMs.size());
    }
    daemon.terminate();
    daemon.waitForFinished(5000);
    return 0;
}
