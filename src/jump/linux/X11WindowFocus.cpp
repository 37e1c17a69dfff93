#include "jump/linux/X11WindowFocus.h"

#include <QFile>
#include <vector>
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

// The managed windows, oldest first; empty when the window manager keeps no list.
std::vector<xcb_window_t> clientWindows(Ewmh& x) {
    xcb_ewmh_get_windows_reply_t clients{};
    if (xcb_ewmh_get_client_list_reply(&x.ewmh, xcb_ewmh_get_client_list(&x.ewmh, x.screen), &clients,
                                       nullptr) == 0) {
        return {};
    }
    std::vector<xcb_window_t> windows(clients.windows, clients.windows + clients.windows_len);
    xcb_ewmh_get_windows_reply_wipe(&clients);
    return windows;
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
    for (const xcb_window_t window : clientWindows(x)) {
        uint32_t windowPID = 0;
        if (xcb_ewmh_get_wm_pid_reply(&x.ewmh, xcb_ewmh_get_wm_pid(&x.ewmh, window), &windowPID, nullptr) !=
                0 &&
            windowPID == static_cast<uint32_t>(pid)) {
            return activate(x, window);
        }
    }
    return false;
}

namespace {

QString folded(const QString& text) {
    QString out;
    for (QChar c : text) {
        if (c.isLetterOrNumber()) {
            out.append(c.toLower());
        }
    }
    return out;
}

// WM_CLASS holds two NUL-terminated strings, the instance and the class.
QStringList windowClasses(xcb_connection_t* connection, xcb_window_t window) {
    const xcb_get_property_cookie_t cookie =
        xcb_get_property(connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256);
    xcb_get_property_reply_t* reply = xcb_get_property_reply(connection, cookie, nullptr);
    QStringList classes;
    if (reply != nullptr) {
        const QByteArray bytes(static_cast<const char*>(xcb_get_property_value(reply)),
                               xcb_get_property_value_length(reply));
        for (const QByteArray& part : bytes.split('\0')) {
            if (!part.isEmpty()) {
                classes.append(QString::fromUtf8(part));
            }
        }
        free(reply);
    }
    return classes;
}

} // namespace

bool X11WindowFocus::classMatches(const QString& windowClass, const QString& appID) {
    const QString cls = folded(windowClass);
    const QString id = folded(appID);
    const QString last = folded(appID.section(QLatin1Char('.'), -1));
    if (cls.isEmpty() || id.isEmpty()) {
        return false;
    }
    // "org.gnome.Terminal" ends in "gnometerminal"; a short class such as "st" must match whole.
    return cls == id || cls == last || (cls.size() >= 5 && id.endsWith(cls));
}

bool X11WindowFocus::activateApplication(const QString& appID) {
    Ewmh x(display_);
    if (!x.ready || appID.isEmpty()) {
        return false;
    }
    // The list runs oldest first; the newest window of the application is the likeliest one in use.
    const std::vector<xcb_window_t> windows = clientWindows(x);
    for (auto window = windows.rbegin(); window != windows.rend(); ++window) {
        for (const QString& cls : windowClasses(x.connection, *window)) {
            if (classMatches(cls, appID)) {
                return activate(x, *window);
            }
        }
    }
    return false;
}

} // namespace mirrowisp
