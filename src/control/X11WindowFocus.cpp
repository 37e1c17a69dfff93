#include "control/X11WindowFocus.h"

#include <QFile>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

namespace mirrowisp {

namespace {

// One connection and its EWMH atoms, released together.
struct Ewmh {
    xcb_connection_t* connection = nullptr;
    xcb_ewmh_connection_t ewmh{};
    int screen = 0;
    bool ready = false;

    explicit Ewmh(const QString& display) {
        const QByteArray name = QFile::encodeName(display);
        connection = xcb_connect(display.isEmpty() ? nullptr : name.constData(), &screen);
        if (xcb_connection_has_error(connection) != 0) {
            return;
        }
        xcb_intern_atom_cookie_t* cookies = xcb_ewmh_init_atoms(connection, &ewmh);
        ready = cookies != nullptr && xcb_ewmh_init_atoms_replies(&ewmh, cookies, nullptr) != 0;
    }
    ~Ewmh() {
        if (ready) {
            xcb_ewmh_connection_wipe(&ewmh);
        }
        xcb_disconnect(connection);
    }
    Ewmh(const Ewmh&) = delete;
    Ewmh& operator=(const Ewmh&) = delete;
};

bool activate(Ewmh& x, xcb_window_t window) {
    // Source 2: a pager acting for the user, which window managers honour over focus-stealing rules.
    // The window active now goes along, as pagers send it; some managers weigh the request by it.
    xcb_window_t current = XCB_WINDOW_NONE;
    xcb_ewmh_get_active_window_reply(&x.ewmh, xcb_ewmh_get_active_window(&x.ewmh, x.screen), &current,
                                     nullptr);
    xcb_ewmh_request_change_active_window(&x.ewmh, x.screen, window, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER,
                                          XCB_CURRENT_TIME, current);
    return xcb_flush(x.connection) > 0;
}

} // namespace

X11WindowFocus::X11WindowFocus(QString display) : display_(std::move(display)) {}

bool X11WindowFocus::activateWindow(quint32 windowID) {
    Ewmh x(display_);
    return x.ready && windowID != 0 && activate(x, windowID);
}

bool X11WindowFocus::activateWindowOf(qint32 pid) {
    Ewmh x(display_);
    if (!x.ready || pid <= 0) {
        return false;
    }
    xcb_ewmh_get_windows_reply_t clients{};
    if (xcb_ewmh_get_client_list_reply(&x.ewmh, xcb_ewmh_get_client_list(&x.ewmh, x.screen), &clients,
                                       nullptr) == 0) {
        return false;
    }
    xcb_window_t found = XCB_WINDOW_NONE;
    for (uint32_t i = 0; i < clients.windows_len && found == XCB_WINDOW_NONE; ++i) {
        uint32_t windowPID = 0;
        if (xcb_ewmh_get_wm_pid_reply(&x.ewmh, xcb_ewmh_get_wm_pid(&x.ewmh, clients.windows[i]), &windowPID,
                                      nullptr) != 0 &&
            windowPID == static_cast<uint32_t>(pid)) {
            found = clients.windows[i];
        }
    }
    xcb_ewmh_get_windows_reply_wipe(&clients);
    return found != XCB_WINDOW_NONE && activate(x, found);
}

} // namespace mirrowisp
