#include "media/NowPlayingService.h"

#include "MockPlayer.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QTcpServer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using test::metadata;
using test::MockPlayer;
using test::playerProperties;

namespace {

class NowPlayingServiceTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(bus.address().isEmpty()) << "dbus-daemon did not start";
        service =
            std::make_unique<NowPlayingService>(QDBusConnection::connectToBus(bus.address(), appSide), clock);
    }
    void TearDown() override {
        service.reset();
        QDBusConnection::disconnectFromBus(appSide);
    }

    std::unique_ptr<MockPlayer> player(const char* suffix, const QString& status, const QString& title,
                                       const QString& artUrl = {}) {
        auto p = std::make_unique<MockPlayer>(
            bus.address(), QString::fromUtf8(suffix),
            playerProperties(status, metadata(title, u"Artist"_s, 200, artUrl), 12));
        EXPECT_TRUE(p->started());
        return p;
    }
    QString title() const { return service->track() ? service->track()->title : QString(); }
    bool shows(const QString& expected) {
        return test::waitUntil([&] { return title() == expected; });
    }

    const QString appSide = QStringLiteral("now-playing-app");
    test::PrivateSessionBus bus;
    test::ManualClock clock;
    std::unique_ptr<NowPlayingService> service;
};

} // namespace

TEST_F(NowPlayingServiceTest, APlayingPlayerWinsThenTheLastActivePausedOneAndStoppedCountsAsNone) {
    auto paused = player("paused", u"Paused"_s, u"Quiet"_s);
    auto playing = player("playing", u"Playing"_s, u"Loud"_s);
    service->start();
    ASSERT_TRUE(shows(u"Loud"_s));
    EXPECT_EQ(service->track()->artist, u"Artist"_s);
    EXPECT_DOUBLE_EQ(service->track()->duration, 200);
    EXPECT_DOUBLE_EQ(service->track()->position, 12);
    clock.advance(3);
    EXPECT_DOUBLE_EQ(service->interpolatedPosition(), 15) << "extrapolated while playing";

    playing->update({{u"PlaybackStatus"_s, u"Stopped"_s}});
    ASSERT_TRUE(shows(u"Quiet"_s)) << "a stopped player has no track; the paused one is next";
    playing->update({{u"PlaybackStatus"_s, u"Paused"_s}});
    ASSERT_TRUE(shows(u"Loud"_s)) << "both paused: the one that changed last wins";
    paused->kill();
    playing->kill();
    EXPECT_TRUE(shows(QString())) << "players that quit leave nothing";
}

TEST_F(NowPlayingServiceTest, CommandsShowAtOnceAndReachThePlayer) {
    auto p = player("one", u"Playing"_s, u"Song"_s);
    service->start();
    ASSERT_TRUE(shows(u"Song"_s));
    EXPECT_TRUE(service->track()->canRepeat);

    service->send(u"playpause"_s);
    EXPECT_FALSE(service->track()->isPlaying) << "shown before the player answers";
    EXPECT_TRUE(test::waitUntil(
        [&] { return p->property(MprisPlayer::playerInterface, u"PlaybackStatus"_s) == u"Paused"_s; }));

    service->seek(42);
    EXPECT_DOUBLE_EQ(service->interpolatedPosition(), 42);
    EXPECT_TRUE(test::waitUntil(
        [&] { return p->property(MprisPlayer::playerInterface, u"Position"_s).toLongLong() == 42'000'000; }));

    service->cycleRepeat();
    EXPECT_EQ(service->track()->repeatMode, RepeatMode::all);
    EXPECT_TRUE(test::waitUntil(
        [&] { return p->property(MprisPlayer::playerInterface, u"LoopStatus"_s) == u"Playlist"_s; }));
    p->update({{u"LoopStatus"_s, u"None"_s}, {u"Rate"_s, 1.5}});
    EXPECT_TRUE(test::waitUntil([&] { return service->track()->rate == 1.5; }));
    EXPECT_EQ(service->track()->repeatMode, RepeatMode::all) << "a stale reading within 4 s is overruled";
    clock.advance(4.1);
    p->update({{u"Rate"_s, 1.0}});
    EXPECT_TRUE(test::waitUntil([&] { return service->track()->repeatMode == RepeatMode::off; }));

    service->openPlayer();
    EXPECT_TRUE(test::waitUntil(
        [&] { return p->property(MprisPlayer::rootInterface, u"Identity"_s) == u"raised"_s; }));
    service->send(u"next track"_s);
    EXPECT_TRUE(shows(u"Next song"_s));

    service->setEnabled(false);
    EXPECT_FALSE(service->track()) << "off clears at once";
    p->update({{u"PlaybackStatus"_s, u"Playing"_s}});
    test::drainMainQueue();
    EXPECT_FALSE(service->track());
}

TEST_F(NowPlayingServiceTest, APlayerThatHangsOrQuitsMidCallIsDroppedWithinItsTimeout) {
    auto hung = player("hung", u"Playing"_s, u"Stuck"_s);
    auto quitting = player("quitting", u"Paused"_s, u"Gone"_s);
    service->start();
    ASSERT_TRUE(shows(u"Stuck"_s));
    hung->freeze();
    quitting->freeze();
    service->players().fetchAll();
    quitting->kill();
    EXPECT_TRUE(test::waitUntil([&] { return !service->track(); }, MprisPlayer::callTimeoutMs + 2000));
}

// Each kind of cover address: a readable image gives its colours; anything else, none and the defaults.
TEST_F(NowPlayingServiceTest, CoversFromTheArtUrlAndTheDefaultsForEverythingElse) {
    QTemporaryDir dir;
    QImage red(64, 64, QImage::Format_RGB32);
    red.fill(QColor(220, 20, 20));
    ASSERT_TRUE(red.save(dir.filePath(u"cover.png"_s)));
    test::writeFile(dir.filePath(u"notes.png"_s), "not an image");
    QFile huge(dir.filePath(u"huge.png"_s));
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly) && huge.resize(200LL * 1024 * 1024));
    const QString sources[] = {dir.filePath(u"notes.png"_s), dir.filePath(u"huge.png"_s), dir.path(),
                               dir.filePath(u"cover.png"_s)};
    auto p = player("art", u"Playing"_s, u"Song 0"_s, QUrl::fromLocalFile(sources[0]).toString());
    service->start();
    for (int i = 0; i < 4; ++i) {
        const QString song = u"Song "_s + QString::number(i);
        p->update(
            {{u"Metadata"_s, metadata(song, u"Artist"_s, 200, QUrl::fromLocalFile(sources[i]).toString())}});
        ASSERT_TRUE(shows(song));
        const bool image = i == 3;
        EXPECT_TRUE(test::waitUntil([&] { return service->artwork().has_value() == image; }))
            << song.toStdString();
        test::waitUntil([&] { return service->accentColor().hue() >= 0 || !image; });
        EXPECT_EQ(service->accentColor().hue() >= 0, image) << song.toStdString();
    }
}

// A cover host that never answers holds up nothing but covers, and its late nothing does not
// replace the cover of the track that came next.
TEST_F(NowPlayingServiceTest, ASilentCoverHostTimesOutAndItsResultIsDroppedOnceTheTrackMovedOn) {
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    QTemporaryDir dir;
    QImage red(16, 16, QImage::Format_RGB32);
    red.fill(Qt::red);
    ASSERT_TRUE(red.save(dir.filePath(u"red.png"_s)));
    auto p =
        player("slow", u"Playing"_s, u"Slow"_s, u"https://127.0.0.1:%1/a.png"_s.arg(silent.serverPort()));
    service->start();
    ASSERT_TRUE(shows(u"Slow"_s));
    ASSERT_TRUE(test::waitUntil([&] { return silent.hasPendingConnections(); }));
    p->update({{u"Metadata"_s, metadata(u"Next"_s, u"Artist"_s, 100,
                                        QUrl::fromLocalFile(dir.filePath(u"red.png"_s)).toString())}});
    EXPECT_TRUE(shows(u"Next"_s)) << "the main thread went on while the cover host stayed silent";
    EXPECT_TRUE(test::waitUntil([&] { return service->artwork().has_value(); }, 12000));
    EXPECT_NEAR(service->accentColor().hueF(), 0, 0.01);
}
