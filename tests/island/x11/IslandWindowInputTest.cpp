// Where clicks on the island's panel land under a real X server, window manager and compositor:
// on the island inside its input region, on the window beneath everywhere else.
#include "TestIsland.h"
#include "X11Desktop.h"

#include <gtest/gtest.h>
#include <xcb/shape.h>

using namespace mirrowisp;
using namespace mirrowisp::test;

namespace {

class IslandWindowInputTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(desktop.ready());
        ASSERT_FALSE(island.loadErrors.has_value())
            << island.loadErrors->join(QLatin1Char('\n')).toStdString();
        // An ordinary window filling the space under the panel, like a terminal the user works in.
        const auto opened = desktop.openWindow(QRect(100, 0, 1700, 1000));
        ASSERT_TRUE(opened.has_value());
        beneath = *opened;
        QObject::connect(island.window.get(), &IslandWindow::pointerPressed,
                         [this](QPoint global, Qt::MouseButton) { islandPresses.push_back(global); });
    }

    // Clicks at `global` and says who got it: the island, the window beneath, or neither in time.
    enum class Receiver { island, beneath, nobody };
    Receiver clickAt(QPoint global) {
        const int before = island.presses();
        if (!test::clickAt(global)) {
            return Receiver::nobody;
        }
        Receiver receiver = Receiver::nobody;
        waitUntil([&] {
            if (island.presses() > before) {
                receiver = Receiver::island;
            } else if (!desktop.takePresses(beneath).empty()) {
                receiver = Receiver::beneath;
            }
            return receiver != Receiver::nobody;
        });
        return receiver;
    }

    // Changes the region of the shown window. The manager copies the shape onto its frame when it
    // hears of the change; a click sent before that would still land on the frame.
    void changeRegion(const QRegion& region) {
        island.window->setInputRegion(region);
        ASSERT_TRUE(desktop.settle());
    }

    static QRect global(QRect local) { return local.translated(islandFrame.topLeft()); }

    X11Desktop desktop;
    TestIsland island;
    xcb_window_t beneath = XCB_WINDOW_NONE;
    std::vector<QPoint> islandPresses;
};

// Clicks inside the region reach the island at their position; the rest of the panel, and all of
// it under an empty region, lets them through to the window beneath, as the region changes.
TEST_F(IslandWindowInputTest, ClicksReachTheIslandOnlyInsideTheRegionAsItChanges) {
    const QRect top = global(pillRect);
    const QRect lower = global(QRect(100, 300, 300, 150));
    ASSERT_TRUE(island.showOn(desktop));
    const struct {
        QRegion region;
        QPoint at;
        Receiver receiver;
    } clicks[] = {
        {QRegion(), top.center(), Receiver::beneath},
        {QRegion(), islandFrame.center(), Receiver::beneath},
        {top, top.center(), Receiver::island},
        {top, islandFrame.topLeft() + QPoint(100, 300), Receiver::beneath},
        {top, top.bottomRight() + QPoint(1, 1), Receiver::beneath},
        {top, lower.center(), Receiver::beneath},
        {lower, lower.center(), Receiver::island},
        {lower, top.center(), Receiver::beneath},
        // Two separate rectangles both take clicks; the panel between them does not.
        {QRegion(top) + QRegion(lower), top.center(), Receiver::island},
        {QRegion(top) + QRegion(lower), lower.center(), Receiver::island},
        {QRegion(top) + QRegion(lower), QPoint(top.center().x(), 250), Receiver::beneath},
        {QRegion(), top.center(), Receiver::beneath},
    };
    for (size_t i = 0; i < std::size(clicks); ++i) {
        if (i == 0 || clicks[i].region != clicks[i - 1].region) {
            changeRegion(clicks[i].region);
        }
        islandPresses.clear();
        EXPECT_EQ(clickAt(clicks[i].at), clicks[i].receiver) << "click " << i;
        if (clicks[i].receiver == Receiver::island) {
            EXPECT_EQ(island.lastPress(), clicks[i].at - islandFrame.topLeft()) << "click " << i;
            EXPECT_EQ(islandPresses, std::vector<QPoint>{clicks[i].at}) << "click " << i;
        }
    }
}

// A region set before showing holds once the window is shown again, and follows its frame.
TEST_F(IslandWindowInputTest, TheRegionHoldsAcrossShowingAgainAndFollowsThePanelsFrame) {
    island.window->setInputRegion(global(pillRect));
    ASSERT_TRUE(island.showOn(desktop));
    island.window->hide();
    ASSERT_TRUE(waitUntil([&] { return !desktop.managed(island.id()); }));
    ASSERT_TRUE(island.showOn(desktop));
    EXPECT_EQ(clickAt(global(pillRect).center()), Receiver::island);
    EXPECT_EQ(clickAt(islandFrame.topLeft() + QPoint(100, 300)), Receiver::beneath);

    // The panel moves 200 to the right while the region stays where it is on the screen: a shape
    // left in the panel's old coordinates would now sit 200 to the right of it.
    const QRect moved = islandFrame.translated(200, 0);
    island.window->setFrame(moved);
    ASSERT_TRUE(desktop.settle());
    const QRect region = global(pillRect);
    EXPECT_EQ(clickAt(region.topRight() + QPoint(100, 20)), Receiver::beneath);
    EXPECT_EQ(clickAt(region.topLeft() + QPoint(5, 20)), Receiver::island);
    EXPECT_EQ(island.lastPress(), region.topLeft() + QPoint(5, 20) - moved.topLeft());
}

TEST_F(IslandWindowInputTest, ReportsThePointerItGetsInGlobalCoordinates) {
    // Where no global monitor works these are all the controller hears, so they must be right.
    std::vector<QPoint> moves;
    int leaves = 0;
    QObject::connect(island.window.get(), &IslandWindow::pointerMoved, [&](QPoint p) { moves.push_back(p); });
    QObject::connect(island.window.get(), &IslandWindow::pointerLeft, [&] { ++leaves; });
    island.window->setInputRegion(global(pillRect));
    ASSERT_TRUE(moveTo(islandFrame.topLeft() + QPoint(50, 300)));
    ASSERT_TRUE(island.showOn(desktop));

    const QPoint inside = global(pillRect).center();
    ASSERT_TRUE(moveTo(inside));
    EXPECT_TRUE(waitUntil([&] { return !moves.empty() && moves.back() == inside; }));
    ASSERT_TRUE(moveTo(inside + QPoint(40, 6)));
    EXPECT_TRUE(waitUntil([&] { return moves.back() == inside + QPoint(40, 6); }));
    EXPECT_EQ(leaves, 0);

    // Leaving the region is leaving the window, though the pointer is still inside the panel.
    ASSERT_TRUE(moveTo(islandFrame.topLeft() + QPoint(50, 300)));
    EXPECT_TRUE(waitUntil([&] { return leaves == 1; }));
}

TEST_F(IslandWindowInputTest, WritesTheShapeOnlyWhenTheRegionChanges) {
    island.window->setInputRegion(global(pillRect));
    ASSERT_TRUE(island.showOn(desktop));
    xcb_connection_t* connection = desktop.connection();
    const uint8_t shapeNotify =
        xcb_get_extension_data(connection, &xcb_shape_id)->first_event + XCB_SHAPE_NOTIFY;
    xcb_shape_select_input(connection, island.id(), 1);
    const XcbReply<xcb_get_input_focus_reply_t> roundTrip(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));

    // The server tells every shape request it carries out, with the new shape's extents.
    std::vector<QRect> notified;
    const auto collect = [&] {
        while (xcb_generic_event_t* raw = xcb_poll_for_event(connection)) {
            const XcbReply<xcb_generic_event_t> event(raw);
            const auto* shape = reinterpret_cast<const xcb_shape_notify_event_t*>(event.get());
            if ((event->response_type & 0x7f) == shapeNotify && shape->shape_kind == XCB_SHAPE_SK_INPUT &&
                shape->affected_window == island.id()) {
                notified.push_back(
                    QRect(shape->extents_x, shape->extents_y, shape->extents_width, shape->extents_height));
            }
        }
    };

    const QRect lower(100, 300, 300, 150);
    island.window->setInputRegion(global(pillRect));
    island.window->setInputRegion(global(lower));
    island.window->setInputRegion(global(lower));
    island.window->setInputRegion(global(lower));
    island.window->setInputRegion(global(pillRect));
    island.window->setInputRegion({});
    island.window->setInputRegion({});
    ASSERT_TRUE(waitUntil([&] {
        collect();
        return !notified.empty() && notified.back().isEmpty();
    }));
    // Requests from one client are carried out in order: nothing repeated can still be on its way.
    EXPECT_EQ(notified, (std::vector<QRect>{lower, pillRect, QRect()}));
}

} // namespace
