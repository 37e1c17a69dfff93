// The panel is see-through around what the view draws, under a compositing manager. The screenshot
// is kept beside the test program (screenshots/island-translucency.png) for a person to look at.
#include "TestIsland.h"
#include "X11Desktop.h"

#include <QImage>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::test;

namespace {

bool near(QRgb pixel, QRgb wanted) {
    return std::abs(qRed(pixel) - qRed(wanted)) < 24 && std::abs(qGreen(pixel) - qGreen(wanted)) < 24 &&
           std::abs(qBlue(pixel) - qBlue(wanted)) < 24;
}

TEST(IslandWindowTranslucencyTest, ShowsTheDesktopAroundTheDrawnShape) {
    X11Desktop desktop;
    ASSERT_TRUE(desktop.ready());
    constexpr QRgb green = 0x30a050;
    const auto beneath = desktop.openWindow(QRect(100, 0, 1700, 1000), green);
    ASSERT_TRUE(beneath.has_value());
    TestIsland island;
    ASSERT_FALSE(island.loadErrors.has_value());
    ASSERT_TRUE(island.showOn(desktop));

    const QString path = screenshotPath(QStringLiteral("island-translucency.png"));
    const QPoint pill = pillRect.translated(islandFrame.topLeft()).center();
    // A point of the panel far from anything the view draws.
    const QPoint clear = islandFrame.topLeft() + QPoint(60, 400);
    const QPoint corners[] = {islandFrame.topLeft() + QPoint(5, 5), islandFrame.bottomRight() - QPoint(5, 5)};
    QImage shot;
    const auto shows = [&] {
        return near(shot.pixel(pill), 0xff0000) && near(shot.pixel(clear), green) &&
               near(shot.pixel(corners[0]), green) && near(shot.pixel(corners[1]), green);
    };
    // The window beneath and the panel are painted by the compositor on its own schedule: grab until
    // the picture settles, and keep the last one for a person to look at.
    const bool painted = waitUntil(
        [&] {
            shot = grabScreen(path) ? QImage(path) : QImage();
            return !shot.isNull() && shows();
        },
        20000);
    ASSERT_FALSE(shot.isNull()) << "no screenshot at " << path.toStdString();
    EXPECT_TRUE(painted) << "beneath managed " << desktop.managed(*beneath) << std::hex << "; pill "
                         << shot.pixel(pill) << ", clear " << shot.pixel(clear) << ", corners "
                         << shot.pixel(corners[0]) << " " << shot.pixel(corners[1]);
}

} // namespace
