#include "support/RealApp.h"
#include "system/PulseServer.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

// The real app on a private PulseAudio daemon, driven through `mirrowisp ctl hud`.
TEST(HudControl, PrintsTheLevelsThatExistAndSetsTheVolume) {
    PulseServer server;
    ASSERT_TRUE(server.start()) << "pulseaudio did not start";
    ASSERT_TRUE(PulseServer::pactl({text("set-sink-volume"), text("wired"), text("70%")}));
    RealApp app;
    ASSERT_TRUE(app.start());

    QJsonObject levels;
    ASSERT_TRUE(waitUntil(
        [&] {
            levels = QJsonDocument::fromJson(app.ctl({text("hud")}).out).object();
            return levels.contains(text("volume"));
        },
        10000));
    EXPECT_NEAR(levels.value(text("volume")).toDouble(), 0.7, 0.001);
    EXPECT_EQ(levels.value(text("muted")), QJsonValue(false));
    EXPECT_FALSE(levels.contains(text("brightness"))) << "no backlight on this machine";

    EXPECT_EQ(app.ctl({text("hud"), text("volume"), text("40%")}).exitCode, 0);
    QByteArray volume;
    EXPECT_TRUE(waitUntil([&] {
        return PulseServer::pactl({text("get-sink-volume"), text("wired")}, &volume) &&
               volume.contains(" 40%");
    }));
    EXPECT_NE(app.ctl({text("hud"), text("brightness"), text("0.5")}).exitCode, 0);
    EXPECT_NE(app.ctl({text("hud"), text("loudness"), text("0.5")}).exitCode, 0);
    EXPECT_EQ(app.ctl({text("hud"), text("volume"), text("loud")}).exitCode, 64);
}

} // namespace
} // namespace mirrowisp::test
