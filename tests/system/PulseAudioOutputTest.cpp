#include "system/linux/PulseAudioOutput.h"

#include "support/TestSupport.h"
#include "system/PulseServer.h"
#include "system/SystemAudio.h"

#include <QTest>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

class PulseAudioOutputTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.start()) << "pulseaudio did not start";
        audio.onChange = [this](double volume, bool muted) { changes.emplace_back(volume, muted); };
        audio.onOutputChange = [this](const QString& address) { outputs.push_back(address); };
        audio.start();
        ASSERT_TRUE(waitUntil([this] { return audio.isAvailable(); }));
    }

    // Lets the app's write and its echo settle before the next outside change.
    static void settle() { QTest::qWait(200); }

    PulseServer server;
    SystemAudio audio{std::make_unique<PulseAudioOutput>(), SystemClock::shared(), makeQtTimer()};
    std::vector<std::pair<double, bool>> changes;
    std::vector<QString> outputs;
};

TEST_F(PulseAudioOutputTest, OutsideBurstArrivesAsOneReportAndOwnWriteAsNone) {
    ASSERT_TRUE(PulseServer::pactl(
        {QStringLiteral("set-sink-volume"), QStringLiteral("wired"), QStringLiteral("40%")}));
    ASSERT_TRUE(PulseServer::pactl(
        {QStringLiteral("set-sink-volume"), QStringLiteral("wired"), QStringLiteral("60%")}));
    ASSERT_TRUE(waitUntil([this] { return !changes.empty(); }));

    audio.setVolume(0.25);
    QByteArray volume;
    ASSERT_TRUE(waitUntil([&] {
        return PulseServer::pactl({QStringLiteral("get-sink-volume"), QStringLiteral("wired")}, &volume) &&
               volume.contains(" 25%");
    }));
    settle();
    ASSERT_TRUE(
        PulseServer::pactl({QStringLiteral("set-sink-mute"), QStringLiteral("wired"), QStringLiteral("1")}));
    ASSERT_TRUE(waitUntil([this] { return changes.size() >= 2; }));

    ASSERT_EQ(changes.size(), 2U);
    EXPECT_NEAR(changes[0].first, 0.6, 0.001);
    EXPECT_FALSE(changes[0].second);
    EXPECT_NEAR(changes[1].first, 0.25, 0.001);
    EXPECT_TRUE(changes[1].second);
}

TEST_F(PulseAudioOutputTest, SwitchToTheHeadsetReportsItsAddressOnce) {
    ASSERT_TRUE(PulseServer::pactl({QStringLiteral("set-default-sink"), QStringLiteral("headset")}));
    ASSERT_TRUE(waitUntil([this] { return !outputs.empty(); }));
    ASSERT_TRUE(PulseServer::pactl({QStringLiteral("set-default-sink"), QStringLiteral("wired")}));
    ASSERT_TRUE(waitUntil([this] { return audio.isAvailable() && audio.volume() > 0; }));
    settle();
    EXPECT_EQ(outputs, std::vector<QString>{QStringLiteral("AA:BB:CC:DD:EE:FF")});
    EXPECT_TRUE(changes.empty());
}

TEST_F(PulseAudioOutputTest, ServerThatDiesAndComesBackBringsTheControlBack) {
    server.stop();
    ASSERT_TRUE(waitUntil([this] { return !audio.isAvailable(); }));
    ASSERT_TRUE(server.start());
    EXPECT_TRUE(waitUntil([this] { return audio.isAvailable(); }, 10000));
}

} // namespace
} // namespace mirrowisp::test
