#include "island/NotchWindowController.h"

#include "IslandTestSupport.h"
#include "island/NotchViewModel.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;
using test::makeScreen;

namespace {

// One island on a 1920 x 1080 screen under a 30 high panel: a 140 x 30 notch centred at x = 960.
class NotchWindowControllerTest : public testing::Test {
protected:
    NotchWindowControllerTest()
        : controller(std::make_unique<NotchWindowController>(makeScreen(7, 0), world.env(), world.factory())),
          panel(world.panelFor(7)) {}

    NotchViewModel& model() { return controller->model(); }

    void move(QPointF at) { event(IslandMouseEvent::mouseMoved, at); }
    void click(QPointF at) { event(IslandMouseEvent::leftMouseDown, at); }
    void event(IslandMouseEvent kind, QPointF at) {
        world.pointer.setPosition(at);
        controller->handleMouse(kind, at);
    }
    void openByClick() {
        click(onIsland);
        ASSERT_TRUE(model().isOpen());
    }

    static constexpr QPointF onIsland{960, 10};
    // Inside the open home panel (668 x 186 from x = 626) but outside the closed island.
    static constexpr QPointF inPanel{700, 150};
    // Below the open panel's 12 point margin.
    static constexpr QPointF away{960, 500};

    test::IslandWorld world;
    std::unique_ptr<NotchWindowController> controller;
    std::shared_ptr<test::PanelLog> panel;
};

TEST_F(NotchWindowControllerTest, HoverOpensAfterTheDelayButAQuickCrossingDoesNot) {
    move(onIsland);
    EXPECT_TRUE(model().isHovering());
    EXPECT_EQ(model().animation(), QStringLiteral("hover"));
    world.tasks.advance(0.03);
    move(away);
    EXPECT_FALSE(model().isHovering());
    EXPECT_EQ(model().animation(), QStringLiteral("hoverOut"));
    world.tasks.advance(1);
    EXPECT_FALSE(model().isOpen()) << "crossing quicker than the delay opens nothing";
    EXPECT_EQ(controller->openCount(), 0);

    move(onIsland);
    world.tasks.advance(0.04);
    EXPECT_FALSE(model().isOpen());
    world.tasks.advance(0.02);
    EXPECT_TRUE(model().isOpen());
    EXPECT_FALSE(model().openedAutomatically());
    EXPECT_FALSE(model().isHovering());
    EXPECT_EQ(model().animation(), QStringLiteral("open"));
}

TEST_F(NotchWindowControllerTest, AClickOpensOnceAndWithoutOpenOnHoverOnlyAClickDoes) {
    move(onIsland);
    EXPECT_EQ(world.tasks.pendingCount(), 1);
    click(onIsland);
    EXPECT_EQ(world.tasks.pendingCount(), 0) << "opening cancels the pending hover";
    world.tasks.advance(1);
    EXPECT_EQ(controller->openCount(), 1);

    controller->closeIsland();
    world.prefs.setOpenOnHover(false);
    move(away);
    move(onIsland);
    world.tasks.advance(5);
    EXPECT_FALSE(model().isOpen());
    click(onIsland);
    EXPECT_TRUE(model().isOpen());
}

TEST_F(NotchWindowControllerTest, OpeningPicksTheNamedTabElseThePrimaryOne) {
    model().setPrimaryTab(NotchTab::agents);
    openByClick();
    EXPECT_EQ(model().tab(), NotchTab::agents);
    model().setTab(NotchTab::shelf);
    controller->open(std::nullopt, false);
    EXPECT_EQ(model().tab(), NotchTab::shelf) << "an open island keeps its tab";
    EXPECT_EQ(model().animation(), QStringLiteral("resize"));
    controller->closeIsland();
    model().setPrimaryTab(std::nullopt);
    controller->open(std::nullopt, false);
    EXPECT_EQ(model().tab(), NotchTab::shelf);
    controller->open(NotchTab::home, false);
    EXPECT_EQ(model().tab(), NotchTab::home);
}

TEST_F(NotchWindowControllerTest, LeavingClosesAfterTheDelayWithoutRestartingTheCountdown) {
    openByClick();
    move(away);
    world.tasks.advance(0.03);
    move(away + QPointF(5, 0));
    EXPECT_TRUE(model().isOpen());
    world.tasks.advance(0.03);
    EXPECT_FALSE(model().isOpen()) << "the first leave started the only countdown";
    EXPECT_EQ(model().animation(), QStringLiteral("close"));

    openByClick();
    move(away);
    world.tasks.advance(0.03);
    move(inPanel);
    world.tasks.advance(1);
    EXPECT_TRUE(model().isOpen()) << "coming back cancels the countdown";

    // The pointer returns without an event reaching us: the countdown looks again when it fires.
    move(away);
    world.pointer.setPosition(inPanel);
    world.tasks.advance(1);
    EXPECT_TRUE(model().isOpen());
}

TEST_F(NotchWindowControllerTest, AnAutomaticIslandWaitsForTheUserOrAClickOutside) {
    controller->open(NotchTab::agents, true);
    EXPECT_TRUE(model().openedAutomatically());
    move(away);
    world.tasks.advance(5);
    EXPECT_TRUE(model().isOpen()) << "the pointer being elsewhere does not close it";

    move(inPanel);
    EXPECT_FALSE(model().openedAutomatically()) << "moving in hands it to the user";
    move(away);
    world.tasks.advance(0.06);
    EXPECT_FALSE(model().isOpen());

    controller->open(NotchTab::agents, true);
    event(IslandMouseEvent::leftMouseDown, inPanel);
    EXPECT_TRUE(model().openedAutomatically()) << "a click is not a move";
    click(away);
    EXPECT_FALSE(model().isOpen());
    EXPECT_FALSE(model().openedAutomatically());
}

TEST_F(NotchWindowControllerTest, AnAutomaticOpenNeverTakesOverAUserIsland) {
    openByClick();
    EXPECT_EQ(model().tab(), NotchTab::home);
    controller->open(NotchTab::agents, true);
    EXPECT_EQ(model().tab(), NotchTab::agents);
    EXPECT_FALSE(model().openedAutomatically());
    EXPECT_EQ(controller->openCount(), 2);

    controller->closeIsland();
    controller->open(NotchTab::agents, true);
    controller->open(NotchTab::home, false);
    EXPECT_FALSE(model().openedAutomatically()) << "a user open takes over an automatic one";
}

TEST_F(NotchWindowControllerTest, MenusAndPopoversHoldTheIslandOpen) {
    openByClick();
    controller->menuOpened();
    move(away);
    world.tasks.advance(1);
    click(away);
    EXPECT_TRUE(model().isOpen());

    controller->menuClosed();
    world.tasks.advance(1);
    EXPECT_TRUE(model().isOpen()) << "nothing closes until the pointer moves again";
    move(away);
    world.tasks.advance(0.06);
    EXPECT_FALSE(model().isOpen());

    controller->menuClosed();
    controller->menuOpened();
    EXPECT_TRUE(controller->isShowingPopup()) << "the menu count never goes below zero";
    controller->menuClosed();

    // A popover that appears while the countdown runs stops it when it fires.
    openByClick();
    move(away);
    controller->setPopupShown(true);
    world.tasks.advance(1);
    click(away);
    EXPECT_TRUE(model().isOpen());
    controller->setPopupShown(false);
    click(away);
    EXPECT_FALSE(model().isOpen());
}

TEST_F(NotchWindowControllerTest, EscapeClosesButEditingTextHoldsAgainstItAndLeavingNotAClickOutside) {
    EXPECT_FALSE(controller->handleEscape());
    openByClick();
    EXPECT_TRUE(controller->handleEscape());
    EXPECT_EQ(panel->keyboardReleases, 0) << "a panel without the keyboard has nothing to give back";

    openByClick();
    world.app.setIsEditingText(true);
    panel->keyboard = true;
    move(away);
    world.tasks.advance(5);
    EXPECT_TRUE(model().isOpen());
    EXPECT_FALSE(controller->handleEscape()) << "Escape belongs to the text field";
    EXPECT_TRUE(model().isOpen());

    click(away);
    EXPECT_FALSE(model().isOpen());
    EXPECT_EQ(panel->keyboardReleases, 1);
    EXPECT_FALSE(world.app.isEditingText());
}

TEST_F(NotchWindowControllerTest, BubblesOpenTheirTab) {
    model().setSecondaries(
        {SecondaryActivity::meeting(), SecondaryActivity::forAgent(AgentKind::codex, true)});
    const auto& bubbles = controller->geometry().bubbleRects();
    ASSERT_EQ(bubbles.size(), 2);
    EXPECT_EQ(bubbles[0], QRectF(856, 0, 28, 30));
    EXPECT_EQ(bubbles[1], QRectF(1036, 0, 28, 30));

    model().setTab(NotchTab::agents);
    click({853, 31}); // just inside the left bubble's margin
    EXPECT_TRUE(model().isOpen());
    EXPECT_EQ(model().tab(), NotchTab::home);
    controller->closeIsland();
    click({1050, 15});
    EXPECT_EQ(model().tab(), NotchTab::agents);
    controller->closeIsland();
    click({1069, 15});
    EXPECT_FALSE(model().isOpen()) << "beyond the bubble's margin is the desktop";
}

TEST_F(NotchWindowControllerTest, TheInputRegionFollowsTheIsland) {
    EXPECT_EQ(panel->region(), QRegion(882, -2, 156, 34));
    model().setClosedSize({158, 35}); // what hovering does to an idle island
    EXPECT_EQ(panel->region(), QRegion(873, -2, 174, 39));
    model().setClosedSize({140, 30});
    model().setSecondaries({SecondaryActivity::music()});
    EXPECT_EQ(panel->region(), QRegion(882, -2, 156, 34) + QRegion(852, -2, 36, 34));

    const auto writes = panel->regions.size();
    model().setSecondaries({SecondaryActivity::meeting()}); // another bubble in the same place
    move(onIsland);
    move(away);
    EXPECT_EQ(panel->regions.size(), writes) << "written only when the area moves";

    controller->open(NotchTab::home, false);
    EXPECT_EQ(panel->region(), QRegion(624, -2, 672, 190));
    model().setTab(NotchTab::agents);
    EXPECT_EQ(panel->region(), QRegion(624, -2, 672, 164));
    controller->closeIsland();
    EXPECT_EQ(panel->region(), QRegion(882, -2, 156, 34) + QRegion(852, -2, 36, 34));
}

TEST_F(NotchWindowControllerTest, MouseIgnoringFlipsOnlyAtTheEdgeOfTheIsland) {
    QSignalSpy flips(controller.get(), &NotchWindowController::ignoresMouseEventsChanged);
    EXPECT_TRUE(controller->ignoresMouseEvents());
    move(away);
    move(onIsland);
    move(onIsland + QPointF(3, 0));
    EXPECT_FALSE(controller->ignoresMouseEvents());
    click(onIsland);
    move({960, 187}); // inside the open panel's 2 point margin
    EXPECT_FALSE(controller->ignoresMouseEvents());
    move({960, 190});
    EXPECT_TRUE(controller->ignoresMouseEvents());
    EXPECT_EQ(flips.count(), 2);
}

TEST_F(NotchWindowControllerTest, TheWindowSitsAtTheTopCentreOfItsScreen) {
    EXPECT_TRUE(panel->visible);
    EXPECT_EQ(panel->frame, QRect(550, 0, 820, 560));
    controller->update(makeScreen(7, 1920, 2560, 1440, 0));
    EXPECT_EQ(panel->frame, QRect(2790, 0, 820, 560));
    EXPECT_EQ(model().notchSize(), QSizeF(140, 26));
    EXPECT_EQ(controller->geometry().closedIslandHotRect(), QRectF(3122, -2, 156, 34))
        << "the closed size is the view's to follow; the rectangles follow the screen";
}

TEST_F(NotchWindowControllerTest, DelayedWorkOfAGoneIslandDoesNothing) {
    openByClick();
    move(away);
    controller.reset();
    EXPECT_FALSE(panel->alive);
    EXPECT_FALSE(panel->visible);
    EXPECT_EQ(world.tasks.pendingCount(), 0);
    world.tasks.advance(1);
}

// A drag another application starts towards the top of the screen: 520 x 180 around x = 960.
struct DragCase {
    const char* label;
    bool shelfEnabled;
    bool started; // the source took the drag selection after the button went down
    std::optional<QStringList> types;
    QPointF downAt;
    bool opens;
};

class NotchWindowControllerDrag : public NotchWindowControllerTest,
                                  public testing::WithParamInterface<DragCase> {};

TEST_P(NotchWindowControllerDrag, OpensTheShelfOnlyForContentFromElsewhere) {
    const DragCase& c = GetParam();
    world.prefs.setShelfEnabled(c.shelfEnabled);
    event(IslandMouseEvent::leftMouseDown, c.downAt);
    if (c.started) {
        world.drags.begin(c.types);
    }
    event(IslandMouseEvent::leftMouseDragged, {900, 120});
    event(IslandMouseEvent::leftMouseDragged, {960, 150});
    EXPECT_EQ(model().isOpen() && model().tab() == NotchTab::shelf, c.opens);
    EXPECT_EQ(controller->isTakingDrag(), c.opens);
}

INSTANTIATE_TEST_SUITE_P(
    Drags, NotchWindowControllerDrag,
    testing::Values(
        DragCase{"Files", true, true, QStringList{QStringLiteral("text/uri-list")}, {200, 600}, true},
        DragCase{"TextOfAnyCharset",
                 true,
                 true,
                 QStringList{QStringLiteral("text/plain;charset=utf-8")},
                 {200, 600},
                 true},
        DragCase{"SourceNamesNoTypes", true, true, std::nullopt, {200, 600}, true},
        DragCase{"NothingTheShelfTakes",
                 true,
                 true,
                 QStringList{QStringLiteral("application/x-color")},
                 {200, 600},
                 false},
        DragCase{"AWindowsTitleBar", true, false, std::nullopt, {200, 600}, false},
        DragCase{"OutOfTheIslandItself",
                 true,
                 true,
                 QStringList{QStringLiteral("text/uri-list")},
                 {960, 10},
                 false},
        DragCase{"ShelfOff", false, true, QStringList{QStringLiteral("text/uri-list")}, {200, 600}, false}),
    [](const auto& param) { return std::string(param.param.label); });

// The zone is the window's while the drag is in it; leaving it or letting go gives the pass-through
// back, and a drag well away from the shelf closes it.
TEST_F(NotchWindowControllerTest, ADragHoldsTheZoneUntilItLeavesOrTheButtonGoesUp) {
    world.prefs.setShelfEnabled(true);
    const QRect zone(700, 0, 520, 180);
    const QPoint belowShelf(705, 178); // in the zone, under the open shelf (668 x 160) and its margin
    const auto drag = [&](QPointF at) { event(IslandMouseEvent::leftMouseDragged, at); };

    event(IslandMouseEvent::leftMouseDown, away);
    world.drags.begin(QStringList{QStringLiteral("text/uri-list")});
    drag(belowShelf);
    ASSERT_TRUE(model().isOpen());
    EXPECT_TRUE(panel->region().contains(zone));
    EXPECT_FALSE(controller->ignoresMouseEvents());
    // Plain motion comes along with the drag's: it neither closes the shelf nor narrows the region.
    move(belowShelf);
    world.tasks.advance(1);
    EXPECT_TRUE(model().isOpen());
    EXPECT_TRUE(panel->region().contains(zone));

    event(IslandMouseEvent::leftMouseUp, belowShelf);
    EXPECT_FALSE(panel->region().contains(belowShelf));
    EXPECT_TRUE(controller->ignoresMouseEvents());
    drag(belowShelf); // motion read in the same go as the release
    EXPECT_FALSE(controller->isTakingDrag());

    // Out of the zone but within 40 of the shelf it stays open; beyond, it closes.
    event(IslandMouseEvent::leftMouseDown, away);
    world.drags.begin(QStringList{QStringLiteral("text/uri-list")});
    drag(belowShelf);
    drag({960, 195});
    move({960, 195});
    world.tasks.advance(1);
    EXPECT_TRUE(model().isOpen());
    EXPECT_FALSE(panel->region().contains(belowShelf));
    drag({960, 205});
    EXPECT_FALSE(model().isOpen());
}

} // namespace
