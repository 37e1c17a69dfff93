// A drag from another window towards the island under a real X server: while it hovers near the top,
// the island's window takes the whole drag zone, which its input shape shows, and takes the drop
// there; afterwards the pointer passes through again.
#include "InProcessIsland.h"
#include "island/NotchViewModel.h"
#include "island/x11/IslandWindow.h"

#include <QDrag>
#include <QMimeData>
#include <QRasterWindow>
#include <QTimer>
#include <gtest/gtest.h>
#include <xcb/shape.h>

using namespace mirrowisp;

namespace {

class IslandDragZone : public test::InProcessIsland {
protected:
    // The window's input shape as the server has it, in global coordinates.
    QRegion inputShape() {
        const auto window =
            static_cast<xcb_window_t>(static_cast<IslandWindow*>(controller->panel())->winId());
        const QPoint origin = desktop.geometryOf(window).topLeft();
        const XcbReply<xcb_shape_get_rectangles_reply_t> reply(xcb_shape_get_rectangles_reply(
            desktop.connection(), xcb_shape_get_rectangles(desktop.connection(), window, XCB_SHAPE_SK_INPUT),
            nullptr));
        QRegion region;
        if (reply) {
            const xcb_rectangle_t* rectangles = xcb_shape_get_rectangles_rectangles(reply.get());
            for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(reply.get()); ++i) {
                region += QRect(rectangles[i].x, rectangles[i].y, rectangles[i].width, rectangles[i].height)
                              .translated(origin);
            }
        }
        return region;
    }

    test::X11Desktop desktop;
};

} // namespace

TEST_F(IslandDragZone, TakesTheZoneOnlyWhileADragIsNear) {
    ASSERT_TRUE(desktop.ready());
    prefs.setShelfEnabled(true);
    test::writeFile(home.path() + text("/notes.txt"), "notes");
    const QRect screen = controller->screen().frame;
    const int midX = screen.center().x() + 1;
    const QRect zone(midX - 260, screen.top(), 520, 180);

    QRasterWindow source;
    source.setGeometry(100, 400, 200, 200);
    source.show();
    ASSERT_TRUE(test::waitUntil([&] { return source.isExposed(); }));
    ASSERT_TRUE(test::moveTo(QPoint(200, 500)));
    ASSERT_TRUE(test::xdotool({text("mousedown"), text("1")}));
    // The island hears the press before the drag takes the selection, as it would from another program.
    test::waitUntil([] { return false; }, 300);

    // Into the zone's corner, away from the island and below where the closed one takes the pointer, as
    // a mouse moves (the island follows raw motion); a second step so the source asks again what lies
    // under the pointer, now the island's window. The moves run inside the drag's own event loop.
    const QPoint corner = zone.bottomLeft() + QPoint(6, -6);
    QRegion during;
    bool targeted = false;
    QTimer::singleShot(400, [&] { test::moveTo(corner); });
    QTimer::singleShot(900, [&] { test::moveTo(corner + QPoint(3, 0)); });
    QTimer::singleShot(1500, [&] {
        during = inputShape();
        targeted = controller->model().isDropTargeted();
        test::xdotool({text("mouseup"), text("1")});
    });
    auto* mime = new QMimeData;
    mime->setUrls({QUrl::fromLocalFile(home.path() + text("/notes.txt"))});
    auto* drag = new QDrag(&source);
    drag->setMimeData(mime);
    EXPECT_EQ(drag->exec(Qt::CopyAction), Qt::CopyAction);

    EXPECT_TRUE(during.contains(zone)) << "shape during the drag: " << during.boundingRect().width() << "x"
                                       << during.boundingRect().height();
    EXPECT_TRUE(targeted);
    EXPECT_TRUE(test::waitUntil([&] { return model.shelf().items().size() == 1; }));
    EXPECT_TRUE(controller->model().isOpen());
    EXPECT_FALSE(controller->model().isDropTargeted());

    // Away from the island it closes, and only the closed island takes the pointer again.
    ASSERT_TRUE(test::moveTo(QPoint(5, 1000)));
    EXPECT_TRUE(test::waitUntil([&] { return !controller->model().isOpen(); }));
    EXPECT_TRUE(test::waitUntil([&] { return !inputShape().contains(corner); }));
    EXPECT_FALSE(inputShape().contains(zone.center()));
}
