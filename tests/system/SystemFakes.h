#pragma once

#include "system/AudioOutput.h"
#include "system/LevelDevice.h"
#include "system/Timer.h"

#include <vector>

namespace mirrowisp::test {

// A timer the test fires by hand; firing a stopped one does nothing, as with a real timer.
class FakeTimer final : public Timer {
public:
    struct State {
        double interval = 0;
        bool repeating = false;
        bool active = false;
    };
    explicit FakeTimer(State& state) : state_(state) {}
    void start(double seconds, bool repeating) override { state_ = {seconds, repeating, true}; }
    void stop() override { state_.active = false; }
    bool isActive() const override { return state_.active; }
    static void fire(State& state, Timer& timer) {
        if (state.active) {
            state.active = state.repeating;
            timer.fired();
        }
    }

private:
    State& state_;
};

// The sound server: the test sends its reports; writes are recorded.
class FakeAudioOutput final : public AudioOutput {
public:
    struct Record {
        Report report;
        std::vector<double> volumes;
        std::vector<bool> mutes;
    };
    explicit FakeAudioOutput(Record& record) : record_(record) {}
    void start(Report report) override { record_.report = std::move(report); }
    void setVolume(double volume) override { record_.volumes.push_back(volume); }
    void setMuted(bool muted) override { record_.mutes.push_back(muted); }

private:
    Record& record_;
};

// A light whose level the test sets; a write lands at once unless `lagging`.
class FakeLevelDevice final : public LevelDevice {
public:
    struct State {
        std::optional<double> level;
        bool writable = true;
        bool lagging = false;
        std::vector<double> writes;
    };
    explicit FakeLevelDevice(State& state) : state_(state) {}
    std::optional<double> read() override { return state_.level; }
    bool canWrite() const override { return state_.writable; }
    void write(double level) override {
        state_.writes.push_back(level);
        if (!state_.lagging) {
            state_.level = level;
        }
    }

private:
    State& state_;
};

} // namespace mirrowisp::test
