#pragma once

#include <xcb/xcb.h>

namespace mirrowisp::X11PanelHints {

// Tells the window manager that `window` is a panel: a dock above other windows, on every desktop,
// out of the task bar and pager. Must be written before each map: managers drop _NET_WM_STATE and
// _NET_WM_DESKTOP when a window is withdrawn.
void apply(xcb_connection_t* connection, xcb_window_t window);

// Sets the input hint of WM_HINTS, which decides whether the manager hands the window the keyboard
// when it is mapped or clicked.
void setAcceptsFocus(xcb_connection_t* connection, xcb_window_t window, bool accepts);

// The window the manager calls active, or XCB_WINDOW_NONE.
xcb_window_t activeWindow(xcb_connection_t* connection, xcb_window_t root);

// Asks the manager to activate `window` the way a pager does, which managers honour over their
// focus-stealing rules.
void requestActivation(xcb_connection_t* connection, xcb_window_t root, xcb_window_t window);

} // namespace mirrowisp::X11PanelHints
