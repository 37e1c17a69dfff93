#include "system/SystemAudio.h"

#include "support/TestSupport.h"
#include "system/SystemFakes.h"

#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

AudioState sink(double volume, bool muted = false, const char* device = "wired", const char* address = "") {
    return {QString::fromLatin1(device), volume, muted, QString::fromLatin1(address)};
}

struct AudioFixture {
    ManualClock clock;
    FakeAudioOutput::Record output;
    FakeTimer::State debounceState;
    FakeTimer* debounce = new FakeTimer(debounceState);
    SystemAudio audio{std::make_unique<FakeAudioOutput>(output), clock, std::unique_ptr<Timer>(debounce)};
    std::vector<std::pair<double, bool>> changes;
    std::vector<QString> outputs;

    AudioFixture() {
        audio.onChange = [this](double volume, bool muted) { changes.emplace_back(volume, muted); };
        audio.onOutputChange = [this](const QString& address) { outputs.push_back(address); };
        audio.start();
        output.report(sink(0.5));
    }
    void fire() { FakeTimer::fire(debounceState, *debounce); }
};

// One step of a scenario: time passes, then the server reports, the app writes, or the debounce fires.
struct Step {
    double after;
    std::optional<AudioState> report;
    std::optional<double> write;
    bool fire;
};
Step report(double after, AudioState state) {
    return {after, state, std::nullopt, false};
}
Step write(double after, double volume) {
    return {after, std::nullopt, volume, false};
}
Step fire(double after) {
    return {after, std::nullopt, std::nullopt, true};
}

struct NotifyCase {
    const char* name;
    std::vector<Step> steps;
    std::vector<std::pair<double, bool>> changes;
    std::vector<QString> outputs;
};

void PrintTo(const NotifyCase& row, std::ostream* out) {
    *out << row.name;
}

class SystemAudioNotify : public testing::TestWithParam<NotifyCase> {};

TEST_P(SystemAudioNotify, ReportsOnlyWhatTheUserShouldSee) {
    AudioFixture f;
    for (const Step& step : GetParam().steps) {
        f.clock.advance(step.after);
        if (step.report) {
            f.output.report(step.report);
        }
        if (step.write) {
            f.audio.setVolume(*step.write);
        }
        if (step.fire) {
            if (f.debounceState.active) {
                EXPECT_DOUBLE_EQ(f.debounceState.interval, 0.3);
            }
            f.fire();
        }
    }
    EXPECT_EQ(f.changes, GetParam().changes);
    EXPECT_EQ(f.outputs, GetParam().outputs);
}

const QString headset = QStringLiteral("AA:BB:CC:DD:EE:FF");

INSTANTIATE_TEST_SUITE_P(
    Cases, SystemAudioNotify,
    testing::Values(
        NotifyCase{"BurstReportsOnceWithItsLastValues",
                   {report(1, sink(0.6)), report(0.2, sink(0.7)), fire(0.3)},
                   {{0.7, false}},
                   {}},
        NotifyCase{"MuteFromElsewhere", {report(1, sink(0.5, true)), fire(0.3)}, {{0.5, true}}, {}},
        NotifyCase{"TinyChangeNeverReports", {report(1, sink(0.5005)), fire(0.3)}, {}, {}},
        NotifyCase{
            "OwnWriteAndItsEchoReportNothing", {write(1, 0.8), report(0.05, sink(0.79)), fire(0.3)}, {}, {}},
        NotifyCase{"WriteDuringDebounceCancelsTheReport",
                   {report(1, sink(0.6)), write(0.2, 0.9), fire(0.05)},
                   {},
                   {}},
        NotifyCase{"SwitchReportsTheHeadsetOnceAndHushesItsSettling",
                   {report(1, sink(0.3, false, "bt", "AA:BB:CC:DD:EE:FF")),
                    report(1, sink(0.4, false, "bt", "AA:BB:CC:DD:EE:FF")), fire(0.3),
                    report(2, sink(0.5, false, "bt", "AA:BB:CC:DD:EE:FF")), fire(0.3)},
                   {{0.5, false}},
                   {headset}},
        NotifyCase{"WiredSwitchReportsNoAddress", {report(1, sink(0.5, false, "other"))}, {}, {}}),
    [](const testing::TestParamInfo<NotifyCase>& param) { return std::string(param.param.name); });

struct WriteCase {
    double volume;
    bool muted;
    double written;
    std::vector<bool> mutes;
};

void PrintTo(const WriteCase& row, std::ostream* out) {
    *out << row.volume << (row.muted ? " muted" : "");
}

class SystemAudioWrite : public testing::TestWithParam<WriteCase> {};

TEST_P(SystemAudioWrite, ClampsAndUnmutesAboveZero) {
    AudioFixture f;
    f.output.report(sink(0.5, GetParam().muted));
    f.audio.setVolume(GetParam().volume);
    EXPECT_EQ(f.output.volumes, std::vector<double>{GetParam().written});
    EXPECT_EQ(f.output.mutes, GetParam().mutes);
    EXPECT_DOUBLE_EQ(f.audio.volume(), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(Cases, SystemAudioWrite,
                         testing::Values(WriteCase{1.5, false, 1.0, {}}, WriteCase{-0.2, false, 0.0, {}},
                                         WriteCase{0.0, true, 0.0, {}}, WriteCase{0.3, true, 0.3, {false}}));

} // namespace
} // namespace mirrowisp::test
