#include "support/TestSupport.h"
#include "system/PulseServer.h"
#include "system/SystemControls.h"
#include "system/linux/PulseAudioOutput.h"
#include "system/x11/X11MediaKeyGrab.h"

#include <QTest>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

using Key = MediaKeyTap::Key;
const std::vector<Key> volumeKeys{Key::volumeUp, Key::volumeDown, Key::mute};

class MediaKeyGrabTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.start()) << "pulseaudio did not start";
        ASSERT_TRUE(PulseServer::pactl(
            {QStringLiteral("set-sink-volume"), QStringLiteral("wired"), QStringLiteral("50%")}));
    }
    void startControls() {
        SystemControls::Backends backends;
        backends.audio = std::make_unique<PulseAudioOutput>();
        controls = std::make_unique<SystemControls>(std::move(backends));
        controls->show = [this](SystemHud::Control control, double level, bool) {
            shown.emplace_back(control, level);
        };
        controls->start();
        ASSERT_TRUE(waitUntil([this] { return controls->hud().has(SystemHud::Control::volume); }));
    }
    static bool sinkVolumeIs(const char* percent) {
        QByteArray out;
        return PulseServer::pactl({QStringLiteral("get-sink-volume"), QStringLiteral("wired")}, &out) &&
               out.contains(QByteArray(" ") + percent + "%");
    }
    static void press(const char* key) {
        ASSERT_EQ(
            QProcess::execute(QStringLiteral("xdotool"), {QStringLiteral("key"), QString::fromLatin1(key)}),
            0);
    }

    PulseServer server;
    std::unique_ptr<SystemControls> controls;
    std::vector<std::pair<SystemHud::Control, double>> shown;
};

TEST_F(MediaKeyGrabTest, VolumeKeyStepsTheSinkAndShowsTheLevel) {
    startControls();
    ASSERT_TRUE(waitUntil([this] { return controls->holdsKeys(); }));
    press("XF86AudioRaiseVolume");
    EXPECT_TRUE(waitUntil([] { return sinkVolumeIs("56"); }));
    ASSERT_FALSE(shown.empty());
    EXPECT_EQ(shown.front(), std::make_pair(SystemHud::Control::volume, 0.5625));
}

TEST_F(MediaKeyGrabTest, HeldKeyGlidesThroughTheServersAutoRepeat) {
    startControls();
    ASSERT_TRUE(waitUntil([this] { return controls->holdsKeys(); }));
    // The event loop runs while the key is held: xdotool goes on by itself.
    QProcess hold;
    hold.start(QStringLiteral("xdotool"),
               {QStringLiteral("keydown"), QStringLiteral("XF86AudioLowerVolume"), QStringLiteral("sleep"),
                QStringLiteral("0.8"), QStringLiteral("keyup"), QStringLiteral("XF86AudioLowerVolume")});
    ASSERT_TRUE(waitUntil([&] { return hold.state() == QProcess::NotRunning; }));
    // One step is 0.4375; the glide takes it well past the next grid line.
    EXPECT_TRUE(waitUntil([this] { return controls->hud().level(SystemHud::Control::volume) < 0.3; }));
    const double released = *controls->hud().level(SystemHud::Control::volume);
    EXPECT_FALSE(
        waitUntil([&] { return controls->hud().level(SystemHud::Control::volume) < released - 0.01; }, 300))
        << "the glide ends with the key";
}

TEST_F(MediaKeyGrabTest, HudOffReleasesTheKeys) {
    startControls();
    ASSERT_TRUE(waitUntil([this] { return controls->holdsKeys(); }));
    controls->setEnabled(false);
    EXPECT_FALSE(controls->holdsKeys());
    X11MediaKeyGrab other;
    EXPECT_EQ(other.grab(volumeKeys), X11MediaKeyGrab::Result::grabbed);
}

TEST_F(MediaKeyGrabTest, KeysTheDesktopHoldsStayItsAndItsChangesStillShow) {
    X11MediaKeyGrab desktop;
    ASSERT_EQ(desktop.grab(volumeKeys), X11MediaKeyGrab::Result::grabbed);
    LogCapture log;
    startControls();
    EXPECT_FALSE(controls->holdsKeys());
    EXPECT_EQ(log.lines().filter(QStringLiteral("holds the volume")).size(), 1);

    std::vector<uint32_t> desktopKeys;
    desktop.onKey = [&](uint32_t data1, uint32_t) { desktopKeys.push_back(data1); };
    press("XF86AudioRaiseVolume");
    ASSERT_TRUE(waitUntil([&] { return desktopKeys.size() == 2; }));
    EXPECT_EQ(desktopKeys[0], MediaKeyTap::encode(Key::volumeUp, MediaKeyTap::pressState, false));
    EXPECT_EQ(desktopKeys[1], MediaKeyTap::encode(Key::volumeUp, MediaKeyTap::releaseState, false));

    ASSERT_TRUE(PulseServer::pactl(
        {QStringLiteral("set-sink-volume"), QStringLiteral("wired"), QStringLiteral("30%")}));
    ASSERT_TRUE(waitUntil([this] { return !shown.empty(); }));
    EXPECT_EQ(shown.front().first, SystemHud::Control::volume);
    EXPECT_NEAR(shown.front().second, 0.3, 0.001);
}

} // namespace
} // namespace mirrowisp::test
