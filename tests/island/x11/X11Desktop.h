#pragma once

// The X server under test as the island's neighbours see it: a second client that makes ordinary
// windows, reads what the window manager wrote, and drives the pointer and keyboard with xdotool.

#include "island/x11/XcbReply.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRect>
#include <QStringList>
#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>
#include <xcb/xcb.h>

namespace mirrowisp::test {

// Runs xdotool against the test's display with each value as its own argument; true when it worked.
inline bool xdotool(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    return process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

// Where the pointer is, as the server has it.
inline QPoint pointerPosition() {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    QPoint position(-1, -1);
    if (xcb_connection_has_error(connection) == 0) {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        const XcbReply<xcb_query_pointer_reply_t> pointer(
            xcb_query_pointer_reply(connection, xcb_query_pointer(connection, root), nullptr));
        if (pointer) {
            position = QPoint(pointer->root_x, pointer->root_y);
        }
    }
    xcb_disconnect(connection);
    return position;
}

// Moves the pointer as a mouse does, in relative XTEST steps (a warp makes no raw motion), repeated
// until it is there in case the server accelerates them.
inline bool moveTo(QPoint global) {
    for (int step = 0; step < 8; ++step) {
        const QPoint delta = global - pointerPosition();
        if (delta.isNull()) {
            return true;
        }
        if (!xdotool({QStringLiteral("mousemove_relative"), QStringLiteral("--"), QString::number(delta.x()),
                      QString::number(delta.y())})) {
            return false;
        }
    }
    return pointerPosition() == global;
}

inline bool clickAt(QPoint global, int button = 1) {
    return moveTo(global) && xdotool({QStringLiteral("click"), QString::number(button)});
}

// The whole screen as a PNG, taken from the root window so the compositor's blending shows.
inline bool grabScreen(const QString& path) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QProcess process;
    process.start(QStringLiteral("import"),
                  {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("-display"),
                   qEnvironmentVariable("DISPLAY"), path});
    return process.waitForFinished(20000) && process.exitCode() == 0 && QFileInfo::exists(path);
}

// Where screenshots go: beside the test program, so a person can look at them after a run.
inline QString screenshotPath(const QString& name) {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/screenshots/") + name;
}

class X11Desktop {
public:
    X11Desktop() {
        connection_ = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(connection_) == 0) {
            screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
        }
    }
    ~X11Desktop() {
        for (xcb_window_t window : windows_) {
            xcb_destroy_window(connection_, window);
        }
        // The next test's connection may be handed the same window ids: the manager must have let go
        // of these first, or it takes a new window for the old one and puts it where that one was.
        if (screen_ != nullptr && !windows_.empty()) {
            settle();
        }
        xcb_disconnect(connection_);
    }
    X11Desktop(const X11Desktop&) = delete;
    X11Desktop& operator=(const X11Desktop&) = delete;

    bool ready() const { return screen_ != nullptr; }
    xcb_connection_t* connection() const { return connection_; }
    xcb_window_t root() const { return screen_->root; }

    xcb_atom_t atom(const char* name) const {
        const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection_, xcb_intern_atom(connection_, 0, static_cast<uint16_t>(std::strlen(name)), name),
            nullptr));
        return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }

    // A plain client window of one colour that hears button presses, placed where asked and, like a
    // terminal, taking the keyboard. Returned once the window manager manages it.
    std::optional<xcb_window_t> openWindow(const QRect& geometry, uint32_t colour = 0x2060c0) {
        const xcb_window_t window = xcb_generate_id(connection_);
        const uint32_t values[] = {colour, XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_KEY_PRESS};
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, root(),
                          static_cast<int16_t>(geometry.x()), static_cast<int16_t>(geometry.y()),
                          static_cast<uint16_t>(geometry.width()), static_cast<uint16_t>(geometry.height()),
                          0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen_->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
        // WM_NORMAL_HINTS with a user position, so the manager keeps it where it is put.
        uint32_t normalHints[18] = {};
        normalHints[0] = 1 | 4; // USPosition | PPosition
        normalHints[1] = static_cast<uint32_t>(geometry.x());
        normalHints[2] = static_cast<uint32_t>(geometry.y());
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, 18, normalHints);
        // Undecorated, so the client covers exactly the rectangle asked for.
        const xcb_atom_t motif = atom("_MOTIF_WM_HINTS");
        const uint32_t motifHints[5] = {2, 0, 0, 0, 0};
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, motif, motif, 32, 5, motifHints);
        const uint32_t hints[9] = {1, 1, 0, 0, 0, 0, 0, 0, 0};
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS,
                            32, 9, hints);
        windows_.push_back(window);
        // A window mapped while the manager is still starting can be missed: map again until taken.
        for (int attempt = 0; attempt < 40; ++attempt) {
            xcb_map_window(connection_, window);
            xcb_flush(connection_);
            if (waitUntil([&] { return managed(window); }, 250)) {
                return window;
            }
            xcb_unmap_window(connection_, window);
        }
        return std::nullopt;
    }

    // Whether the manager has taken the window (it writes WM_STATE when it does).
    bool managed(xcb_window_t window) const {
        const xcb_atom_t wmState = atom("WM_STATE");
        const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            connection_, xcb_get_property(connection_, 0, window, wmState, wmState, 0, 2), nullptr));
        return reply && reply->format == 32 && xcb_get_property_value_length(reply.get()) >= 4 &&
               *static_cast<const uint32_t*>(xcb_get_property_value(reply.get())) == 1;
    }

    std::vector<uint32_t> property32(xcb_window_t window, const char* name) const {
        const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            connection_,
            xcb_get_property(connection_, 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 64), nullptr));
        if (!reply || reply->format != 32) {
            return {};
        }
        const auto* values = static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
        return {values, values + xcb_get_property_value_length(reply.get()) / 4};
    }

    bool managerSupports(const char* name) const {
        const auto supported = property32(root(), "_NET_SUPPORTED");
        return std::find(supported.begin(), supported.end(), atom(name)) != supported.end();
    }

    xcb_window_t activeWindow() const {
        const auto values = property32(root(), "_NET_ACTIVE_WINDOW");
        return values.empty() ? xcb_window_t{XCB_WINDOW_NONE} : values.front();
    }

    // Where the window's top-left corner is on the screen and how big it is, as the server has it.
    QRect geometryOf(xcb_window_t window) const {
        const XcbReply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window), nullptr));
        const XcbReply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(
            connection_, xcb_translate_coordinates(connection_, window, root(), 0, 0), nullptr));
        if (!geometry || !origin) {
            return {};
        }
        return {origin->dst_x, origin->dst_y, geometry->width, geometry->height};
    }

    // Asks the manager to activate `window`, as a pager does.
    void activate(xcb_window_t window) const { sendToManager(window, "_NET_ACTIVE_WINDOW", 2); }

    // Returns once the manager has handled everything sent to it before: it is asked to change the
    // number of desktops, and handles requests in order.
    bool settle() const {
        const auto count = property32(root(), "_NET_NUMBER_OF_DESKTOPS");
        if (count.empty()) {
            return false;
        }
        const uint32_t wanted = count.front() == 4 ? 5 : 4;
        sendToManager(root(), "_NET_NUMBER_OF_DESKTOPS", wanted);
        return waitUntil([&] {
            const auto now = property32(root(), "_NET_NUMBER_OF_DESKTOPS");
            return !now.empty() && now.front() == wanted;
        });
    }

    // Button presses the window got since the last call, with their window-local positions.
    std::vector<QPoint> takePresses(xcb_window_t window) {
        while (xcb_generic_event_t* raw = xcb_poll_for_event(connection_)) {
            const XcbReply<xcb_generic_event_t> event(raw);
            if ((event->response_type & 0x7f) == XCB_BUTTON_PRESS) {
                const auto* press = reinterpret_cast<const xcb_button_press_event_t*>(event.get());
                presses_.push_back({press->event, QPoint(press->event_x, press->event_y)});
            }
        }
        std::vector<QPoint> taken;
        std::erase_if(presses_, [&](const Press& press) {
            if (press.window != window) {
                return false;
            }
            taken.push_back(press.position);
            return true;
        });
        return taken;
    }

private:
    struct Press {
        xcb_window_t window;
        QPoint position;
    };

    void sendToManager(xcb_window_t window, const char* type, uint32_t value) const {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = atom(type);
        event.data.data32[0] = value;
        xcb_send_event(connection_, 0, root(),
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&event));
        xcb_flush(connection_);
    }

    xcb_connection_t* connection_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    std::vector<xcb_window_t> windows_;
    std::vector<Press> presses_;
};

} // namespace mirrowisp::test
