// Raising windows under a real X server (Xvfb) with a real window manager (openbox).
#include "jump/linux/X11WindowFocus.h"

#include "support/TestSupport.h"
#include "support/XvfbServer.h"

#include <functional>
#include <gtest/gtest.h>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

class X11WindowFocusTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(x.start(true, false)) << qPrintable(x.error());
        display = x.display();
        connection = xcb_connect(qPrintable(display), &screen);
        ASSERT_EQ(xcb_connection_has_error(connection), 0);
        ASSERT_NE(xcb_ewmh_init_atoms_replies(&ewmh, xcb_ewmh_init_atoms(connection, &ewmh), nullptr), 0);
    }

    void TearDown() override {
        xcb_ewmh_connection_wipe(&ewmh);
        xcb_disconnect(connection);
    }

    // A top-level window that says it belongs to `pid`, once the window manager manages it and has
    // given it the focus, as it does to every new window: a request sent before that settles would
    // cross the manager's own focus change, which may drop it.
    std::optional<xcb_window_t> managedWindow(uint32_t pid, const QByteArray& wmClass = {}) {
        if (!managerTakesWindows()) {
            return std::nullopt;
        }
        const xcb_window_t id = window(pid, wmClass);
        xcb_map_window(connection, id);
        xcb_flush(connection);
        if (!test::waitUntil([&] { return managed(id) && active() == id; }, 15000)) {
            return std::nullopt;
        }
        return id;
    }

    // The manager misses a window mapped while it starts: a throwaway one is mapped again until it
    // is taken, waiting longer each time, so a slow start is waited out rather than raced.
    bool managerTakesWindows() {
        if (managerReady) {
            return true;
        }
        const xcb_window_t probe = window(1, {});
        for (int attempt = 1; attempt <= 8 && !managerReady; ++attempt) {
            xcb_map_window(connection, probe);
            xcb_flush(connection);
            managerReady = test::waitUntil([&] { return managed(probe); }, 250 * attempt);
            xcb_unmap_window(connection, probe);
        }
        xcb_destroy_window(connection, probe);
        xcb_flush(connection);
        return managerReady && test::waitUntil([&] { return !managed(probe); }, 15000);
    }

    // The manager may still drop a request that crosses its own focus change, as it would a double
    // click: asking again is what the user would do. A request that never works still fails.
    bool raises(const std::function<bool()>& request, xcb_window_t expected) {
        // A loaded machine can keep the manager from answering for seconds: each attempt waits long.
        for (int attempt = 0; attempt < 8; ++attempt) {
            if (request() && test::waitUntil([&] { return active() == expected; }, 6000)) {
                return true;
            }
        }
        return false;
    }

    xcb_window_t window(uint32_t pid, const QByteArray& wmClass) {
        const xcb_window_t id = xcb_generate_id(connection);
        xcb_screen_t* root = ewmh.screens[screen];
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, id, root->root, 0, 0, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, root->root_visual, 0, nullptr);
        xcb_ewmh_set_wm_pid(&ewmh, id, pid);
        if (!wmClass.isEmpty()) {
            xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                                static_cast<uint32_t>(wmClass.size()), wmClass.constData());
        }
        // Like a terminal, the window takes keyboard input (WM_HINTS with the input hint set).
        const uint32_t hints[9] = {1, 1, 0, 0, 0, 0, 0, 0, 0};
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 32,
                            9, hints);
        return id;
    }

    xcb_window_t active() {
        xcb_window_t window = XCB_WINDOW_NONE;
        xcb_ewmh_get_active_window_reply(&ewmh, xcb_ewmh_get_active_window(&ewmh, screen), &window, nullptr);
        return window;
    }

    bool managed(xcb_window_t window) {
        xcb_ewmh_get_windows_reply_t clients{};
        if (xcb_ewmh_get_client_list_reply(&ewmh, xcb_ewmh_get_client_list(&ewmh, screen), &clients,
                                           nullptr) == 0) {
            return false;
        }
        bool found = false;
        for (uint32_t i = 0; i < clients.windows_len; ++i) {
            found = found || clients.windows[i] == window;
        }
        xcb_ewmh_get_windows_reply_wipe(&clients);
        return found;
    }

    test::XvfbServer x;
    QString display;
    xcb_connection_t* connection = nullptr;
    xcb_ewmh_connection_t ewmh{};
    int screen = 0;
    bool managerReady = false;
};

} // namespace

TEST_F(X11WindowFocusTest, RaisesAWindowByItsIDOrByTheProcessThatOwnsIt) {
    const auto terminal = managedWindow(4101);
    const auto other = managedWindow(4102);
    ASSERT_TRUE(terminal && other) << "openbox did not manage the test windows";

    X11WindowFocus focus(display);
    EXPECT_TRUE(raises([&] { return focus.activateWindowOf(4101); }, *terminal));
    EXPECT_TRUE(raises([&] { return focus.activateWindow(*other); }, *other));
    EXPECT_TRUE(raises([&] { return focus.activateWindowOf(4101); }, *terminal));

    EXPECT_FALSE(focus.activateWindowOf(999999)) << "no window of that process";
    EXPECT_FALSE(focus.activateApplication(u"org.kde.konsole"_s)) << "no window of that app";
    EXPECT_FALSE(X11WindowFocus(u":4999"_s).activateWindow(*other)) << "no such display";
}

TEST_F(X11WindowFocusTest, RaisesAnApplicationByItsDesktopID) {
    const auto gnome = managedWindow(4201, QByteArray("gnome-terminal-server\0Gnome-terminal\0", 38));
    const auto kitty = managedWindow(4202, QByteArray("kitty\0kitty\0", 12));
    ASSERT_TRUE(gnome && kitty) << "openbox did not manage the test windows";

    X11WindowFocus focus(display);
    EXPECT_TRUE(raises([&] { return focus.activateApplication(u"org.gnome.Terminal"_s); }, *gnome));
    EXPECT_TRUE(raises([&] { return focus.activateApplication(u"kitty"_s); }, *kitty));
    EXPECT_FALSE(focus.activateApplication(u"org.kde.konsole"_s));
}

TEST(X11WindowClass, MatchesDesktopIDsWithoutConfusingSimilarTerminals) {
    EXPECT_TRUE(X11WindowFocus::classMatches(u"Gnome-terminal"_s, u"org.gnome.Terminal"_s));
    EXPECT_TRUE(X11WindowFocus::classMatches(u"org.wezfurlong.wezterm"_s, u"org.wezfurlong.wezterm"_s));
    EXPECT_TRUE(X11WindowFocus::classMatches(u"Code"_s, u"code"_s));
    EXPECT_TRUE(X11WindowFocus::classMatches(u"konsole"_s, u"org.kde.konsole"_s));
    EXPECT_FALSE(X11WindowFocus::classMatches(u"xfce4-terminal"_s, u"org.gnome.Terminal"_s));
    EXPECT_FALSE(X11WindowFocus::classMatches(u"st"_s, u"org.gnome.Terminal"_s));
    EXPECT_FALSE(X11WindowFocus::classMatches(QString(), u"kitty"_s));
}
