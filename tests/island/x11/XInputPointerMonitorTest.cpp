// The global pointer through XInput 2 raw events, driven with xdotool like a real mouse.
#include "island/x11/XInputPointerMonitor.h"

#include "X11Desktop.h"

#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::test;

namespace {

class XInputPointerMonitorTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(desktop.ready());
        ASSERT_TRUE(monitor.isAvailable()) << monitor.error().toStdString();
        ASSERT_TRUE(monitor.coversWholeScreen());
        QObject::connect(&monitor, &XInputPointerMonitor::moved, [this](QPoint p) { moves.push_back(p); });
        QObject::connect(&monitor, &XInputPointerMonitor::leftPressed,
                         [this](QPoint p) { presses.push_back(p); });
        QObject::connect(&monitor, &XInputPointerMonitor::leftReleased,
                         [this](QPoint p) { releases.push_back(p); });
        QObject::connect(&monitor, &XInputPointerMonitor::leftDragged,
                         [this](QPoint p) { drags.push_back(p); });
        QObject::connect(&monitor, &XInputPointerMonitor::otherPressed,
                         [this](QPoint p, int button) { others.emplace_back(p, button); });
    }

    bool lastMoveIs(QPoint p) const { return !moves.empty() && moves.back() == p; }

    X11Desktop desktop;
    XInputPointerMonitor monitor;
    std::vector<QPoint> moves, presses, releases, drags;
    std::vector<std::pair<QPoint, int>> others;
};

TEST_F(XInputPointerMonitorTest, ReportsWhereThePointerMovesAnywhereOnTheScreen) {
    for (const QPoint to : {QPoint(120, 340), QPoint(1900, 1070), QPoint(960, 0)}) {
        ASSERT_TRUE(moveTo(to));
        EXPECT_TRUE(waitUntil([&] { return lastMoveIs(to); })) << to.x() << "," << to.y();
    }
    EXPECT_TRUE(presses.empty());
    EXPECT_TRUE(drags.empty());
}

TEST_F(XInputPointerMonitorTest, ReportsAClickOverAnotherClientsWindowWithoutTakingIt) {
    const auto other = desktop.openWindow(QRect(400, 300, 500, 400));
    ASSERT_TRUE(other.has_value());
    ASSERT_TRUE(desktop.settle());
    const QPoint target(650, 500);

    ASSERT_TRUE(clickAt(target));
    EXPECT_TRUE(waitUntil([&] { return presses.size() == 1 && releases.size() == 1; }));
    EXPECT_EQ(presses.front(), target);
    EXPECT_EQ(releases.front(), target);
    // The window under the pointer still got its click: the monitor only listens.
    EXPECT_TRUE(waitUntil([&] { return !desktop.takePresses(*other).empty(); }));
}

TEST_F(XInputPointerMonitorTest, ReportsDragsOnlyWhileTheLeftButtonIsHeld) {
    ASSERT_TRUE(moveTo(QPoint(300, 300)));
    ASSERT_TRUE(waitUntil([&] { return lastMoveIs(QPoint(300, 300)); }));
    ASSERT_TRUE(xdotool({QStringLiteral("mousedown"), QStringLiteral("1")}));
    ASSERT_TRUE(waitUntil([&] { return presses.size() == 1; }));
    EXPECT_EQ(presses.front(), QPoint(300, 300));
    EXPECT_TRUE(drags.empty());

    ASSERT_TRUE(moveTo(QPoint(420, 360)));
    EXPECT_TRUE(waitUntil([&] { return !drags.empty() && drags.back() == QPoint(420, 360); }));

    ASSERT_TRUE(xdotool({QStringLiteral("mouseup"), QStringLiteral("1")}));
    ASSERT_TRUE(waitUntil([&] { return releases.size() == 1; }));
    EXPECT_EQ(releases.front(), QPoint(420, 360));
    const std::size_t dragsBefore = drags.size();
    ASSERT_TRUE(moveTo(QPoint(500, 500)));
    ASSERT_TRUE(waitUntil([&] { return lastMoveIs(QPoint(500, 500)); }));
    EXPECT_EQ(drags.size(), dragsBefore);
}

TEST_F(XInputPointerMonitorTest, TellsOtherButtonsApartAndLeavesTheWheelOut) {
    ASSERT_TRUE(moveTo(QPoint(700, 200)));
    ASSERT_TRUE(xdotool(
        {QStringLiteral("click"), QStringLiteral("4"), QStringLiteral("click"), QStringLiteral("3")}));
    EXPECT_TRUE(waitUntil([&] { return !others.empty(); }));
    ASSERT_EQ(others.size(), 1u);
    EXPECT_EQ(others.front(), std::make_pair(QPoint(700, 200), 3));
    EXPECT_TRUE(presses.empty());
}

TEST(XInputPointerMonitorUnavailableTest, IsUnavailableWithoutAnXServer) {
    XInputPointerMonitor monitor(QStringLiteral(":65000"));
    EXPECT_FALSE(monitor.isAvailable());
    EXPECT_FALSE(monitor.coversWholeScreen());
    EXPECT_FALSE(monitor.error().isEmpty());
}

} // namespace
