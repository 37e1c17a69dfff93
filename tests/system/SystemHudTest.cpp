#include "system/SystemHud.h"

#include "support/TestSupport.h"
#include "system/LevelControl.h"
#include "system/SystemAudio.h"
#include "system/SystemFakes.h"

#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

using Key = MediaKeyTap::Key;
using Control = SystemHud::Control;

struct HudFixture {
    ManualClock clock;
    FakeAudioOutput::Record output;
    FakeTimer::State unused;
    SystemAudio audio{std::make_unique<FakeAudioOutput>(output), clock, std::make_unique<FakeTimer>(unused)};
    FakeLevelDevice::State screen;
    LevelControl brightness{std::make_unique<FakeLevelDevice>(screen), clock,
                            std::make_unique<FakeTimer>(unused)};
    bool enabled = true;
    SystemHud hud{clock, &audio, &brightness, nullptr};
    std::vector<std::tuple<Control, double, bool>> shown;

    explicit HudFixture(double volume = 0.5, bool muted = false) {
        audio.start();
        output.report(AudioState{QStringLiteral("wired"), volume, muted, {}});
        screen.level = 0.3;
        hud.enabled = [this] { return enabled; };
        hud.show = [this](Control control, double level, bool mutedNow) {
            shown.emplace_back(control, level, mutedNow);
        };
    }
};

struct KeyCase {
    Key key;
    bool fine;
    double volume;
    bool muted;
    bool handled;
    double level; // the volume or brightness after the key
    bool mutedAfter;
};

void PrintTo(const KeyCase& row, std::ostream* out) {
    *out << static_cast<int>(row.key) << (row.fine ? " fine" : "") << " from " << row.volume;
}

class SystemHudKey : public testing::TestWithParam<KeyCase> {};

TEST_P(SystemHudKey, StepsOnTheGridAndShowsTheLevel) {
    const KeyCase& row = GetParam();
    HudFixture f(row.volume, row.muted);
    EXPECT_EQ(f.hud.handleKey(row.key, row.fine), row.handled);
    const Control control = SystemHud::controlOf(row.key);
    EXPECT_DOUBLE_EQ(*f.hud.level(control), row.level);
    EXPECT_EQ(f.audio.isMuted(), row.mutedAfter);
    if (row.handled) {
        ASSERT_EQ(f.shown.size(), 1U);
        EXPECT_EQ(f.shown[0],
                  std::make_tuple(control, row.level, control == Control::volume && row.mutedAfter));
    } else {
        EXPECT_TRUE(f.shown.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, SystemHudKey,
                         testing::Values(KeyCase{Key::volumeUp, false, 0.5, false, true, 0.5625, false},
                                         KeyCase{Key::volumeUp, false, 0.52, true, true, 0.5625, false},
                                         KeyCase{Key::volumeDown, true, 0.5, true, true, 0.484375, false},
                                         KeyCase{Key::volumeDown, false, 0.03, false, true, 0.0, false},
                                         KeyCase{Key::mute, false, 0.5, false, true, 0.5, true},
                                         KeyCase{Key::mute, false, 0.5, true, true, 0.5, false},
                                         KeyCase{Key::brightnessUp, false, 0.5, false, true, 0.375, false},
                                         KeyCase{Key::brightnessDown, true, 0.5, false, true, 0.28125,
                                                 false}));

TEST(SystemHud, AbsentControlsAndTheHudOffPassTheKey) {
    HudFixture f;
    EXPECT_FALSE(f.hud.handleKey(Key::keyboardUp, false));
    EXPECT_FALSE(f.hud.wouldHandle(Key::keyboardDown));
    f.screen.writable = false;
    EXPECT_FALSE(f.hud.wouldHandle(Key::brightnessUp))
        << "a light we cannot set keeps its keys with the desktop";
    EXPECT_FALSE(f.hud.handleKey(Key::brightnessUp, false));
    f.screen.writable = true;
    f.screen.level.reset();
    EXPECT_FALSE(f.hud.handleKey(Key::brightnessUp, false));
    f.enabled = false;
    EXPECT_FALSE(f.hud.handleKey(Key::volumeUp, false));
    EXPECT_TRUE(f.output.volumes.empty());
    EXPECT_TRUE(f.shown.empty());
}

TEST(SystemHud, WithTheHudOffTheTapPassesThePressButSwallowsTheRelease) {
    HudFixture f;
    f.enabled = false;
    FakeTimer::State timer;
    MediaKeyTap tap(f.clock, std::make_unique<FakeTimer>(timer));
    tap.handler = [&](Key key, bool fine) { return f.hud.handleKey(key, fine); };
    tap.wouldHandle = [&](Key key) { return f.hud.wouldHandle(key); };
    EXPECT_FALSE(tap.process(MediaKeyTap::encode(Key::volumeUp, MediaKeyTap::pressState, false), 0));
    EXPECT_TRUE(tap.process(MediaKeyTap::encode(Key::volumeUp, MediaKeyTap::releaseState, false), 0));
}

TEST(SystemHud, GlideBuildsOnItsOwnRecentLevelWhileTheDeviceLags) {
    HudFixture f;
    f.screen.lagging = true;
    f.hud.glide(Key::brightnessUp, 0.01);
    f.clock.advance(0.1);
    f.hud.glide(Key::brightnessUp, 0.01);
    EXPECT_NEAR(f.screen.writes.back(), 0.32, 1e-9);
    f.clock.advance(0.2); // too old: the level read counts again
    f.hud.glide(Key::brightnessUp, 0.01);
    EXPECT_NEAR(f.screen.writes.back(), 0.31, 1e-9);
}

} // namespace
} // namespace mirrowisp::test
