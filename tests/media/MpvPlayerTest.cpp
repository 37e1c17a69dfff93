#include "media/NowPlayingService.h"
#include "support/TestSupport.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <QDataStream>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

// Thirty seconds of quiet 8 kHz mono sound, as a WAV file of the test's own.
void writeWave(const QString& path) {
    constexpr quint32 rate = 8000, samples = rate * 30;
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    QDataStream out(&file);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << quint32(36 + samples);
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(1) << rate << rate << quint16(1) << quint16(8);
    out.writeRawData("data", 4);
    out << samples;
    file.write(QByteArray(samples, char(0x80)));
}

} // namespace

// A real player: mpv with its MPRIS plugin, on a private bus, playing with no sound device.
TEST(MpvPlayerTest, FollowsAndDrivesMpv) {
    const QString plugin = u"/usr/lib/mpv-mpris/mpris.so"_s;
    if (!QFile::exists(plugin) || QStandardPaths::findExecutable(u"mpv"_s).isEmpty()) {
        GTEST_SKIP() << "mpv and mpv-mpris are not installed (scripts/install-deps.sh installs them)";
    }
    test::PrivateSessionBus bus;
    ASSERT_FALSE(bus.address().isEmpty());
    QTemporaryDir dir;
    writeWave(dir.filePath(u"tone.wav"_s));
    test::ManualClock clock;
    NowPlayingService service(QDBusConnection::connectToBus(bus.address(), u"mpv-app"_s), clock);
    service.start();
    QProcess mpv;
    mpv.setProcessEnvironment(test::appEnvironment(bus.address()));
    mpv.start(u"mpv"_s, {u"--no-config"_s, u"--ao=null"_s, u"--vo=null"_s, u"--really-quiet"_s,
                         u"--script="_s + plugin, dir.filePath(u"tone.wav"_s)});
    const auto track = [&] { return service.track().value_or(NowPlayingTrack{}); };
    ASSERT_TRUE(test::waitUntil([&] { return track().isPlaying && track().duration > 0; }, 10000));
    EXPECT_EQ(track().title, u"tone.wav"_s);
    EXPECT_NEAR(track().duration, 30, 0.1);
    EXPECT_TRUE(track().canRepeat);

    service.send(u"playpause"_s);
    EXPECT_TRUE(test::waitUntil([&] { return !track().isPlaying; }));
    clock.advance(1); // a real reading, not the shown expectation, has to confirm it
    EXPECT_TRUE(test::waitUntil([&] {
        service.players().fetchAll();
        return !track().isPlaying;
    }));

    service.seek(12);
    const auto mpvPosition = [&] {
        QDBusMessage get = QDBusMessage::createMethodCall(track().player, MprisPlayer::objectPath,
                                                          u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        get << MprisPlayer::playerInterface << u"Position"_s;
        const QDBusMessage reply = QDBusConnection::connectToBus(bus.address(), u"mpv-app"_s).call(get);
        return reply.arguments().value(0).value<QDBusVariant>().variant().toDouble() / 1e6;
    };
    EXPECT_TRUE(test::waitUntil([&] { return std::abs(mpvPosition() - 12) < 0.2; }))
        << mpvPosition() << " " << service.players().find(track().player)->reading().trackId.toStdString();
    service.cycleRepeat();
    clock.advance(5); // past the pending value: what shows is mpv's own loop status
    EXPECT_TRUE(test::waitUntil([&] {
        service.players().fetchAll();
        return track().repeatMode == RepeatMode::all;
    }));

    mpv.kill();
    mpv.waitForFinished();
    EXPECT_TRUE(test::waitUntil([&] { return !service.track(); }));
    QDBusConnection::disconnectFromBus(u"mpv-app"_s);
}
