// The real app's music views under a private X server: the closed island and the home tab's player
// for a staged player (screenshots for the README), and space taken over the open island only.
#include "../MockPlayer.h"
#include "island/x11/RealIsland.h"
#include "island/x11/X11Desktop.h"
#include "support/RealApp.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPixmap>
#include <QScreen>
#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

std::optional<QRect> button(const test::RealApp& real, const char* name) {
    return test::buttonIn(test::islandOf(real), name);
}

// Key presses the desktop's test window received.
int spacesTyped(test::X11Desktop& desktop, xcb_window_t window) {
    static int count = 0;
    while (xcb_generic_event_t* event = xcb_poll_for_event(desktop.connection())) {
        if ((event->response_type & 0x7f) == XCB_KEY_PRESS &&
            reinterpret_cast<xcb_key_press_event_t*>(event)->event == window) {
            ++count;
        }
        free(event);
    }
    return count;
}

} // namespace

TEST(IslandMusicTest, ShowsThePlayerAndTakesSpaceOnlyOverTheOpenIsland) {
    test::RealApp real{true};
    test::X11Desktop desktop;
    ASSERT_TRUE(real.busStarted());
    real.environment().insert(u"MIRROWISP_ARTWORK_CATALOGUE"_s, QString());
    QTemporaryDir dir;
    QImage cover(300, 300, QImage::Format_RGB32);
    cover.fill(QColor(30, 90, 200));
    for (int y = 150; y < 300; ++y) {
        for (int x = 0; x < 300; ++x) {
            cover.setPixelColor(x, y, QColor(240, 140, 30));
        }
    }
    ASSERT_TRUE(cover.save(dir.filePath(u"cover.png"_s)));
    ASSERT_TRUE(real.start());
    const QString bus = real.environment().value(u"DBUS_SESSION_BUS_ADDRESS"_s);
    test::MockPlayer player(
        bus, u"island"_s,
        test::playerProperties(u"Playing"_s,
                               test::metadata(u"Harbour Lights"_s, u"The Quiet Tide"_s, 241,
                                              QUrl::fromLocalFile(dir.filePath(u"cover.png"_s)).toString()),
                               64));
    ASSERT_TRUE(player.started());
    const auto status = [&] {
        return player.property(u"org.mpris.MediaPlayer2.Player"_s, u"PlaybackStatus"_s);
    };

    const int centreX = QGuiApplication::primaryScreen()->geometry().center().x();
    const auto elsewhere = desktop.openWindow(QRect(100, 700, 300, 200));
    ASSERT_TRUE(elsewhere.has_value());
    ASSERT_TRUE(test::moveTo({250, 800}));
    ASSERT_TRUE(test::waitUntil(
        [&] { return test::islandOf(real)[u"content"_s].toString().startsWith(u"music"_s); }, 15000))
        << "the closed island does not show the music";
    test::saveIslandScreenshot("closed-music");

    ASSERT_TRUE(test::moveTo({centreX, 8}));
    ASSERT_TRUE(test::waitUntil([&] { return test::islandOf(real)[u"isOpen"_s].toBool(); }, 5000));
    EXPECT_EQ(test::islandOf(real)[u"tab"_s], u"home"_s);
    test::saveIslandScreenshot("home-player");
    ASSERT_TRUE(test::xdotool({u"key"_s, u"space"_s}));
    EXPECT_TRUE(test::waitUntil([&] { return status() == u"Paused"_s; }))
        << "space over the island did not pause";

    // Held down, space plays once: its repeats go with the first press.
    QVariant last = status();
    ASSERT_EQ(last, u"Paused"_s);
    ASSERT_TRUE(test::xdotool({u"keydown"_s, u"space"_s}));
    int flips = 0;
    test::waitUntil(
        [&] {
            const QVariant now = status();
            flips += now != last;
            last = now;
            return false;
        },
        1500);
    ASSERT_TRUE(test::xdotool({u"keyup"_s, u"space"_s}));
    EXPECT_EQ(flips, 1);
    EXPECT_EQ(status(), u"Playing"_s);

    // The cover brings the player forward; the transport buttons drive it.
    for (const char* name : {"coverButton", "nextButton"}) {
        std::optional<QRect> at;
        ASSERT_TRUE(test::waitUntil([&] { return (at = button(real, name)).has_value(); })) << name;
        ASSERT_TRUE(test::clickAt(at->center()));
    }
    EXPECT_TRUE(test::waitUntil(
        [&] { return player.property(u"org.mpris.MediaPlayer2"_s, u"Identity"_s) == u"raised"_s; }));
    EXPECT_TRUE(test::waitUntil([&] { return real.ctl({u"media"_s}).out.contains("Next song"); }));

    // Elsewhere space types: the window under the pointer takes it and the music plays on.
    ASSERT_TRUE(test::clickAt({250, 800}));
    ASSERT_TRUE(test::waitUntil([&] { return !test::islandOf(real)[u"isOpen"_s].toBool(); }, 5000));
    const int before = spacesTyped(desktop, *elsewhere);
    ASSERT_TRUE(test::xdotool({u"key"_s, u"space"_s}));
    EXPECT_TRUE(test::waitUntil([&] { return spacesTyped(desktop, *elsewhere) == before + 1; }))
        << "space did not reach the window";
    EXPECT_EQ(status(), u"Playing"_s);
}
