#pragma once

#include <QRegion>
#include <optional>
#include <xcb/xcb.h>

namespace mirrowisp {

// The input shape of one native window: where it takes the pointer, with everything outside going to
// the windows beneath. Unlike the bounding shape it clips no drawing, so the island can be painted
// anywhere in the panel and still let clicks through around it.
class X11InputShape {
public:
    // Makes `local` (window-local device pixels) the window's input shape; an empty region takes no
    // input at all. The request is only sent when the shape or the window differs from the last one
    // written, so a controller may call this on every pointer move.
    void apply(xcb_connection_t* connection, xcb_window_t window, const QRegion& local);
    // The native window went away (or was re-created): the next apply writes whatever it gets.
    void forget();

private:
    xcb_window_t window_ = XCB_WINDOW_NONE;
    std::optional<QRegion> written_;
    std::optional<bool> extensionPresent_;
};

} // namespace mirrowisp
