#include "system/MediaKeyTap.h"

#include "support/TestSupport.h"
#include "system/SystemFakes.h"

#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

using Key = MediaKeyTap::Key;
constexpr uint32_t fineFlags = MediaKeyTap::shiftFlag | MediaKeyTap::optionFlag;

struct TapFixture {
    ManualClock clock{1000}; // small, so frame times keep their precision
    FakeTimer::State timerState;
    FakeTimer* timer = new FakeTimer(timerState);
    MediaKeyTap tap{clock, std::unique_ptr<Timer>(timer)};
    std::vector<std::pair<Key, bool>> steps;
    std::vector<std::pair<Key, double>> frames;
    bool handles = true;

    TapFixture() {
        tap.handler = [this](Key key, bool fine) {
            steps.emplace_back(key, fine);
            return handles;
        };
        tap.glideHandler = [this](Key key, double amount) { frames.emplace_back(key, amount); };
        tap.wouldHandle = [](Key) { return true; };
    }
    bool press(Key key, uint32_t flags = 0) {
        return tap.process(MediaKeyTap::encode(key, MediaKeyTap::pressState, false), flags);
    }
    bool release(Key key) {
        return tap.process(MediaKeyTap::encode(key, MediaKeyTap::releaseState, false), 0);
    }
    // Time passes to the timer's next firing, which then fires.
    void tick() {
        clock.advance(timerState.interval);
        FakeTimer::fire(timerState, *timer);
    }
};

struct PressCase {
    Key key;
    uint32_t flags;
    bool handles;
    bool fine;
    bool repeats;
};

void PrintTo(const PressCase& row, std::ostream* out) {
    *out << static_cast<int>(row.key) << "/" << row.flags;
}

class MediaKeyTapPress : public testing::TestWithParam<PressCase> {};

TEST_P(MediaKeyTapPress, StepsOnceAndRepeatsOnlyRepeatingHandledKeys) {
    TapFixture f;
    f.handles = GetParam().handles;
    EXPECT_EQ(f.press(GetParam().key, GetParam().flags), GetParam().handles);
    ASSERT_EQ(f.steps.size(), 1U);
    EXPECT_EQ(f.steps[0].second, GetParam().fine);
    EXPECT_EQ(f.tap.heldKey().has_value(), GetParam().repeats);
    EXPECT_EQ(f.timerState.active, GetParam().repeats);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MediaKeyTapPress,
    testing::Values(PressCase{Key::volumeUp, 0, true, false, true},
                    PressCase{Key::brightnessDown, fineFlags, true, true, true},
                    PressCase{Key::keyboardUp, MediaKeyTap::shiftFlag, true, false, true},
                    PressCase{Key::volumeDown, MediaKeyTap::optionFlag, true, false, true},
                    PressCase{Key::mute, 0, true, false, false},
                    PressCase{Key::volumeUp, 0, false, false, false}));

TEST(MediaKeyTap, UnknownKeyTypeAndMissingHandlerPass) {
    TapFixture f;
    EXPECT_FALSE(f.tap.process((5U << 16) | MediaKeyTap::pressState, 0));
    f.tap.handler = nullptr;
    EXPECT_FALSE(f.press(Key::volumeUp));
    EXPECT_FALSE(f.release(Key::volumeUp));
}

TEST(MediaKeyTap, ShortPressStepsWithoutGlide) {
    TapFixture f;
    f.press(Key::volumeUp);
    f.clock.advance(0.05);
    EXPECT_TRUE(f.release(Key::volumeUp));
    EXPECT_FALSE(f.timerState.active);
    EXPECT_TRUE(f.frames.empty());
}

TEST(MediaKeyTap, HeldKeyGlidesFasterOverHalfASecondAndStopsAfterFour) {
    TapFixture f;
    f.press(Key::volumeDown);
    EXPECT_DOUBLE_EQ(f.timerState.interval, 0.1);
    f.tick(); // the delay: the glide starts, no frame yet
    EXPECT_DOUBLE_EQ(f.timerState.interval, 1.0 / 60);
    f.tick();
    ASSERT_EQ(f.frames.size(), 1U);
    const double dt = 1.0 / 60;
    EXPECT_NEAR(f.frames[0].second, (0.4 + 0.6 * 2 * dt) * dt, 1e-12);
    while (f.timerState.active && f.frames.size() < 1000) {
        f.tick();
    }
    EXPECT_NEAR(f.frames.back().second, dt, 1e-12); // full speed
    EXPECT_NEAR(static_cast<double>(f.frames.size()) * dt, 4.0, 2 * dt);
    EXPECT_FALSE(f.tap.heldKey());
}

TEST(MediaKeyTap, FineGlideRunsAtAQuarter) {
    TapFixture f;
    f.press(Key::keyboardUp, fineFlags);
    f.tick();
    f.tick();
    ASSERT_EQ(f.frames.size(), 1U);
    const double dt = 1.0 / 60;
    EXPECT_NEAR(f.frames[0].second, 0.25 * (0.4 + 0.6 * 2 * dt) * dt, 1e-12);
}

TEST(MediaKeyTap, SecondKeyDuringAGlideTakesOver) {
    TapFixture f;
    f.press(Key::volumeUp);
    f.tick();
    f.tick();
    f.press(Key::brightnessUp);
    EXPECT_EQ(f.tap.heldKey(), Key::brightnessUp);
    EXPECT_TRUE(f.release(Key::volumeUp)); // the old key's release leaves the new glide alone
    f.tick();
    f.tick();
    EXPECT_EQ(f.frames.back().first, Key::brightnessUp);
    EXPECT_TRUE(f.release(Key::brightnessUp));
    EXPECT_FALSE(f.tap.heldKey());
}

TEST(MediaKeyTap, AutoRepeatIsSwallowedWithoutAStep) {
    TapFixture f;
    f.press(Key::volumeUp);
    EXPECT_TRUE(f.tap.process(MediaKeyTap::encode(Key::volumeUp, MediaKeyTap::pressState, true), 0));
    EXPECT_EQ(f.steps.size(), 1U);
    EXPECT_EQ(f.tap.heldKey(), Key::volumeUp);
}

} // namespace
} // namespace mirrowisp::test
