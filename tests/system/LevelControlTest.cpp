#include "system/LevelControl.h"

#include "support/TestSupport.h"
#include "system/SystemFakes.h"

#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

struct LevelFixture {
    ManualClock clock;
    FakeLevelDevice::State device;
    FakeTimer::State pollState;
    FakeTimer* pollTimer = new FakeTimer(pollState);
    LevelControl control{std::make_unique<FakeLevelDevice>(device), clock, std::unique_ptr<Timer>(pollTimer)};
    std::vector<double> changes;

    LevelFixture() {
        control.onExternalChange = [this](double level) { changes.push_back(level); };
        control.start();
    }
};

// Readings one after another: seconds since the last, the level read (nothing: unreadable), and
// whether the program adjusted by +1/16 just before.
struct Reading {
    double after;
    std::optional<double> level;
    bool ownStep = false;
};

struct PollCase {
    const char* name;
    std::vector<Reading> readings;
    std::vector<double> changes;
};

void PrintTo(const PollCase& row, std::ostream* out) {
    *out << row.name;
}

class LevelControlPoll : public testing::TestWithParam<PollCase> {};

TEST_P(LevelControlPoll, ReportsOnlyQuickStepsFromElsewhere) {
    LevelFixture f;
    for (const Reading& reading : GetParam().readings) {
        f.clock.advance(reading.after);
        if (reading.ownStep) {
            f.control.adjust(1.0 / 16, true);
        }
        f.device.level = reading.level;
        f.control.poll();
    }
    EXPECT_EQ(f.changes, GetParam().changes);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LevelControlPoll,
    testing::Values(
        PollCase{"TwoSmallStepsReportOnTheSecond", {{0, 0.5}, {1, 0.5}, {0.1, 0.52}, {0.1, 0.54}}, {0.54}},
        PollCase{"BigStepReports", {{0, 0.5}, {1, 0.7}}, {0.7}},
        PollCase{"SlowDriftNeverReports", {{0, 0.5}, {1, 0.51}, {1, 0.52}, {1, 0.53}, {1, 0.54}}, {}},
        PollCase{"OwnWriteReportsNothing", {{0, 0.5}, {1, 0.5625, true}, {0.1, 0.5625}}, {}},
        PollCase{"UnreadableStartsAfresh", {{0, 0.5}, {1, std::nullopt}, {1, 0.9}}, {}}),
    [](const testing::TestParamInfo<PollCase>& param) { return std::string(param.param.name); });

struct AdjustCase {
    std::optional<double> level;
    bool writable;
    double delta;
    bool snap;
    std::optional<double> result;
};

void PrintTo(const AdjustCase& row, std::ostream* out) {
    *out << row.level.value_or(-1) << " by " << row.delta;
}

class LevelControlAdjust : public testing::TestWithParam<AdjustCase> {};

TEST_P(LevelControlAdjust, SnapsToTheStepsGridWithinZeroToOne) {
    LevelFixture f;
    f.device.level = GetParam().level;
    f.device.writable = GetParam().writable;
    const std::optional<double> result = f.control.adjust(GetParam().delta, GetParam().snap);
    ASSERT_EQ(result.has_value(), GetParam().result.has_value());
    if (result) {
        EXPECT_DOUBLE_EQ(*result, *GetParam().result);
        EXPECT_DOUBLE_EQ(f.device.writes.back(), *result);
    } else {
        EXPECT_TRUE(f.device.writes.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, LevelControlAdjust,
                         testing::Values(AdjustCase{0.30, true, 0.0625, true, 0.375},
                                         AdjustCase{0.30, true, -0.015625, true, 0.28125},
                                         AdjustCase{0.98, true, 0.0625, true, 1.0},
                                         AdjustCase{0.30, true, 0.01, false, 0.31},
                                         AdjustCase{0.02, true, -0.5, false, 0.0},
                                         AdjustCase{std::nullopt, true, 0.0625, true, std::nullopt},
                                         AdjustCase{0.30, false, 0.0625, true, std::nullopt}));

TEST(LevelControl, PollTellsWhenTheLightStopsOrStartsTakingWrites) {
    LevelFixture f;
    int changes = 0;
    f.control.onAvailabilityChange = [&] { ++changes; };
    f.device.level = 0.5;
    f.control.poll();
    f.control.poll();
    EXPECT_EQ(changes, 1);
    f.device.writable = false; // logind refused
    f.control.poll();
    EXPECT_EQ(changes, 2);
    EXPECT_FALSE(f.control.canAdjust());
}

TEST(AdaptivePoll, MovementPollsFastForTwoSecondsThenSlow) {
    LevelFixture f;
    EXPECT_DOUBLE_EQ(f.pollState.interval, 1.0);
    f.device.level = 0.5;
    FakeTimer::fire(f.pollState, *f.pollTimer);
    f.clock.advance(1);
    f.device.level = 0.6;
    FakeTimer::fire(f.pollState, *f.pollTimer);
    EXPECT_DOUBLE_EQ(f.pollState.interval, 0.1);
    f.clock.advance(1.9);
    FakeTimer::fire(f.pollState, *f.pollTimer);
    EXPECT_DOUBLE_EQ(f.pollState.interval, 0.1);
    f.clock.advance(0.2);
    FakeTimer::fire(f.pollState, *f.pollTimer);
    EXPECT_DOUBLE_EQ(f.pollState.interval, 1.0);
}

} // namespace
} // namespace mirrowisp::test
