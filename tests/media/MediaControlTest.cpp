// `mirrowisp ctl media` against the real app, with a staged player on the app's private bus.
#include "MockPlayer.h"
#include "support/RealApp.h"
#include "support/TestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

TEST(MediaControlTest, PrintsTheTrackAndDrivesThePlayer) {
    test::RealApp real;
    ASSERT_TRUE(real.busStarted());
    real.environment().insert(u"MIRROWISP_ARTWORK_CATALOGUE"_s, QString()); // no network in tests
    ASSERT_TRUE(real.start());
    EXPECT_EQ(real.ctl({u"media"_s, u"playpause"_s}).exitCode, 1) << "no player yet";
    const QJsonObject none = QJsonDocument::fromJson(real.ctl({u"media"_s}).out).object();
    EXPECT_TRUE(none.value(u"track"_s).isNull());
    EXPECT_EQ(none.value(u"palette"_s).toArray().first().toString(), u"#ffffff"_s);

    const QString bus = real.environment().value(u"DBUS_SESSION_BUS_ADDRESS"_s);
    test::MockPlayer player(
        bus, u"ctl"_s, test::playerProperties(u"Playing"_s, test::metadata(u"Song"_s, u"Artist"_s, 200), 20));
    ASSERT_TRUE(player.started());
    QJsonObject track;
    EXPECT_TRUE(test::waitUntil(
        [&] {
            track = QJsonDocument::fromJson(real.ctl({u"media"_s}).out).object().value(u"track"_s).toObject();
            return track.value(u"title"_s) == u"Song"_s;
        },
        10000));
    EXPECT_GE(track.value(u"position"_s).toDouble(), 20);
    EXPECT_EQ(track.value(u"repeat"_s), u"off"_s);

    const auto status = [&](const char* name) {
        return player.property(u"org.mpris.MediaPlayer2.Player"_s, QString::fromUtf8(name));
    };
    EXPECT_EQ(real.ctl({u"media"_s, u"playpause"_s}).exitCode, 0);
    EXPECT_TRUE(test::waitUntil([&] { return status("PlaybackStatus") == u"Paused"_s; }));
    EXPECT_EQ(real.ctl({u"media"_s, u"seek"_s, u"30.5"_s}).exitCode, 0);
    EXPECT_TRUE(test::waitUntil([&] { return status("Position").toLongLong() == 30'500'000; }));
    EXPECT_EQ(real.ctl({u"media"_s, u"repeat"_s}).exitCode, 0);
    EXPECT_TRUE(test::waitUntil([&] { return status("LoopStatus") == u"Playlist"_s; }));
    EXPECT_EQ(real.ctl({u"media"_s, u"seek"_s, u"soon"_s}).exitCode, 64);
    EXPECT_EQ(real.ctl({u"media"_s, u"louder"_s}).exitCode, 64);
}
