// What the window manager (openbox) makes of the island's panel, and where the keyboard goes.
#include "TestIsland.h"
#include "X11Desktop.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace mirrowisp::test;

namespace {

class IslandWindowManagerTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(desktop.ready());
        ASSERT_FALSE(island.loadErrors.has_value())
            << island.loadErrors->join(QLatin1Char('\n')).toStdString();
    }

    bool hasAtom(xcb_window_t window, const char* property, const char* value) const {
        const auto values = desktop.property32(window, property);
        return std::find(values.begin(), values.end(), desktop.atom(value)) != values.end();
    }

    // A terminal-like window with the keyboard, as the user's would have before the island shows.
    xcb_window_t focusedTerminal() {
        const auto terminal = desktop.openWindow(QRect(200, 600, 600, 300));
        if (!terminal) {
            return XCB_WINDOW_NONE;
        }
        desktop.activate(*terminal);
        return waitUntil([&] { return desktop.activeWindow() == *terminal; }) ? *terminal
                                                                              : xcb_window_t{XCB_WINDOW_NONE};
    }

    xcb_window_t inputFocus() const {
        const XcbReply<xcb_get_input_focus_reply_t> focus(xcb_get_input_focus_reply(
            desktop.connection(), xcb_get_input_focus(desktop.connection()), nullptr));
        return focus ? focus->focus : xcb_window_t{XCB_WINDOW_NONE};
    }

    X11Desktop desktop;
    TestIsland island;
};

// Managers drop the state and desktop of a withdrawn window: every show must bring them back.
TEST_F(IslandWindowManagerTest, IsADockAboveOnEveryDesktopOutOfTaskbarAndPagerEachTimeItShows) {
    for (int shown = 1; shown <= 2; ++shown) {
        SCOPED_TRACE(shown);
        if (shown > 1) {
            island.window->hide();
            ASSERT_TRUE(waitUntil([&] { return !desktop.managed(island.id()); }));
        }
        ASSERT_TRUE(island.showOn(desktop));
        const xcb_window_t id = island.id();
        EXPECT_TRUE(hasAtom(id, "_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DOCK"));
        // Read back after the manager took the window: these are the states it keeps.
        for (const char* state :
             {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"}) {
            EXPECT_TRUE(hasAtom(id, "_NET_WM_STATE", state)) << state;
        }
        // Openbox has no sticky state; every desktop at once is what it keeps instead.
        EXPECT_EQ(desktop.property32(id, "_NET_WM_DESKTOP"), std::vector<uint32_t>{0xFFFFFFFF});
        if (desktop.managerSupports("_NET_WM_STATE_STICKY")) {
            EXPECT_TRUE(hasAtom(id, "_NET_WM_STATE", "_NET_WM_STATE_STICKY"));
        }
    }
}

TEST_F(IslandWindowManagerTest, StaysExactlyWhereItsFrameIs) {
    ASSERT_TRUE(island.showOn(desktop));
    EXPECT_EQ(desktop.geometryOf(island.id()), islandFrame);
    EXPECT_EQ(island.window->geometry(), islandFrame);

    // Moved to another place (a screen change), it goes there and nowhere else.
    const QRect elsewhere(300, 0, 820, 560);
    island.window->setFrame(elsewhere);
    ASSERT_TRUE(desktop.settle());
    EXPECT_TRUE(waitUntil([&] { return desktop.geometryOf(island.id()) == elsewhere; }))
        << "at " << desktop.geometryOf(island.id()).x() << "," << desktop.geometryOf(island.id()).y();

    // Another window opening over the same place moves nothing.
    ASSERT_TRUE(desktop.openWindow(QRect(300, 0, 900, 700)).has_value());
    ASSERT_TRUE(desktop.settle());
    EXPECT_EQ(desktop.geometryOf(island.id()), elsewhere);
}

// Shown, clicked or shown again the island leaves the keyboard alone; asked for it, it gives it back
// on a click elsewhere or when hidden.
TEST_F(IslandWindowManagerTest, TheKeyboardStaysWithTheUsersWindowUnlessAskedFor) {
    const xcb_window_t terminal = focusedTerminal();
    ASSERT_NE(terminal, XCB_WINDOW_NONE);
    const QPoint pill = pillRect.translated(islandFrame.topLeft()).center();
    island.window->setInputRegion(pillRect.translated(islandFrame.topLeft()));
    int losses = 0;
    QObject::connect(island.window.get(), &IslandWindow::keyboardFocusLost, [&] { ++losses; });
    const auto withTerminal = [&] { return desktop.activeWindow() == terminal && inputFocus() == terminal; };

    ASSERT_TRUE(island.showOn(desktop));
    EXPECT_TRUE(withTerminal());
    for (int press = 1; press <= 2; ++press) {
        SCOPED_TRACE(press);
        ASSERT_TRUE(clickAt(pill));
        ASSERT_TRUE(waitUntil([&] { return island.presses() == press; }));
        ASSERT_TRUE(desktop.settle());
        EXPECT_TRUE(withTerminal());
        EXPECT_FALSE(island.window->hasKeyboardFocus());
        if (press == 1) {
            island.window->requestKeyboardFocus();
            ASSERT_TRUE(waitUntil([&] { return island.window->hasKeyboardFocus(); }));
            ASSERT_TRUE(clickAt(QPoint(400, 750)));
            EXPECT_TRUE(waitUntil([&] { return inputFocus() == terminal && losses == 1; }));
        }
    }

    island.window->requestKeyboardFocus();
    ASSERT_TRUE(waitUntil([&] { return inputFocus() == island.id(); }));
    island.window->hide();
    EXPECT_TRUE(waitUntil(withTerminal));
    EXPECT_FALSE(island.window->hasKeyboardFocus());
    ASSERT_TRUE(island.showOn(desktop));
    EXPECT_EQ(inputFocus(), terminal);
    EXPECT_FALSE(island.window->hasKeyboardFocus());
}

TEST_F(IslandWindowManagerTest, ATextFieldTakesTheKeyboardAndGivesItBack) {
    const xcb_window_t terminal = focusedTerminal();
    ASSERT_NE(terminal, XCB_WINDOW_NONE);
    island.window->setInputRegion(fieldRect.translated(islandFrame.topLeft()));
    int escapes = 0;
    QObject::connect(island.window.get(), &IslandWindow::escapePressed, [&] { ++escapes; });
    ASSERT_TRUE(island.showOn(desktop));

    // Clicking the field gives it the active focus, which asks for the keyboard.
    ASSERT_TRUE(clickAt(fieldRect.translated(islandFrame.topLeft()).center()));
    ASSERT_TRUE(waitUntil([&] { return island.window->hasKeyboardFocus(); }));
    EXPECT_EQ(inputFocus(), island.id());

    ASSERT_TRUE(xdotool({QStringLiteral("type"), QStringLiteral("allow once")}));
    EXPECT_TRUE(waitUntil([&] { return island.typed() == QStringLiteral("allow once"); }))
        << island.typed().toStdString();
    ASSERT_TRUE(xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
    EXPECT_TRUE(waitUntil([&] { return escapes == 1; }));

    island.window->releaseKeyboardFocus();
    EXPECT_TRUE(waitUntil([&] { return desktop.activeWindow() == terminal && inputFocus() == terminal; }));
    EXPECT_TRUE(waitUntil([&] { return !island.window->hasKeyboardFocus(); }));

    // The field asks again when clicked again.
    ASSERT_TRUE(clickAt(fieldRect.translated(islandFrame.topLeft()).center()));
    ASSERT_TRUE(waitUntil([&] { return island.window->hasKeyboardFocus(); }));
    // Two quick clicks on the field select a word; End puts the cursor back after the text.
    ASSERT_TRUE(
        xdotool({QStringLiteral("key"), QStringLiteral("End"), QStringLiteral("type"), QStringLiteral("!")}));
    EXPECT_TRUE(waitUntil([&] { return island.typed() == QStringLiteral("allow once!"); }))
        << island.typed().toStdString();
}

} // namespace
