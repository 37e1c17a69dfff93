#include "island/x11/X11InputShape.h"

#include "base/Log.h"

#include <vector>
#include <xcb/shape.h>

namespace mirrowisp {

void X11InputShape::apply(xcb_connection_t* connection, xcb_window_t window, const QRegion& local) {
    if (connection == nullptr || window == XCB_WINDOW_NONE) {
        return;
    }
    if (window_ == window && written_ == local) {
        return;
    }
    if (!extensionPresent_) {
        const xcb_query_extension_reply_t* shape = xcb_get_extension_data(connection, &xcb_shape_id);
        extensionPresent_ = shape != nullptr && shape->present != 0;
        if (!*extensionPresent_) {
            logLine(QStringLiteral("Mirrowisp: the X server has no SHAPE extension; the island takes "
                                   "every click in its panel"));
        }
    }
    if (!*extensionPresent_) {
        return;
    }
    std::vector<xcb_rectangle_t> rectangles;
    rectangles.reserve(static_cast<std::size_t>(local.rectCount()));
    for (const QRect& rect : local) {
        rectangles.push_back({static_cast<int16_t>(rect.x()), static_cast<int16_t>(rect.y()),
                              static_cast<uint16_t>(rect.width()), static_cast<uint16_t>(rect.height())});
    }
    xcb_shape_rectangles(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED, window,
                         0, 0, static_cast<uint32_t>(rectangles.size()), rectangles.data());
    xcb_flush(connection);
    window_ = window;
    written_ = local;
}

void X11InputShape::forget() {
    window_ = XCB_WINDOW_NONE;
    written_.reset();
}

} // namespace mirrowisp
