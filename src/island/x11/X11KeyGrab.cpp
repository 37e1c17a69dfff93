#include "island/x11/X11KeyGrab.h"

#include "system/x11/X11Keyboard.h"

#include <QSocketNotifier>
#include <cstdlib>
#include <xcb/xcb.h>

namespace mirrowisp {

X11KeyGrab::X11KeyGrab(const QString& keys, const QString& display, QObject* parent) : QObject(parent) {
    xcb_connection_t* connection = X11Keyboard::connect(display);
    if (connection == nullptr) {
        return;
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    // The key codes that carry the characters in the current layout (the Latin-1 characters are their
    // own key symbols).
    for (const X11Keyboard::KeyCode& key : X11Keyboard::keyCodes(connection)) {
        if (key.sym < 0x100 && keys.contains(QChar(static_cast<char16_t>(key.sym)))) {
            keys_.push_back({key.code, QString(QChar(static_cast<char16_t>(key.sym)))});
        }
    }
    connection_ = connection;
    notifier_ =
        std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &X11KeyGrab::readEvents);
}

X11KeyGrab::~X11KeyGrab() {
    setGrabbed(false);
    notifier_.reset();
    if (connection_ != nullptr) {
        xcb_disconnect(connection_);
    }
}

bool X11KeyGrab::setGrabbed(bool grabbed) {
    if (connection_ == nullptr || grabbed == grabbed_) {
        return connection_ != nullptr || !grabbed;
    }
    bool ok = true;
    for (const Key& key : keys_) {
        for (uint16_t modifiers : X11Keyboard::lockCombinations) {
            if (grabbed) {
                xcb_generic_error_t* error = xcb_request_check(
                    connection_, xcb_grab_key_checked(connection_, 1, root_, modifiers, key.code,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
                ok = ok && error == nullptr;
                free(error);
            } else {
                xcb_ungrab_key(connection_, key.code, root_, modifiers);
            }
        }
    }
    xcb_flush(connection_);
    grabbed_ = grabbed;
    return ok;
}

void X11KeyGrab::readEvents() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        const uint8_t type = event->response_type & 0x7f;
        if (type == XCB_KEY_RELEASE) {
            lastRelease_ = reinterpret_cast<xcb_key_release_event_t*>(event)->time;
        } else if (type == XCB_KEY_PRESS) {
            const auto* press = reinterpret_cast<xcb_key_press_event_t*>(event);
            // Only the plain key: with Shift, Control or Alt the press means something else.
            const uint16_t held = press->state & ~(XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2);
            for (const Key& key : keys_) {
                if (key.code == press->detail && held == 0 && press->time != lastRelease_) {
                    Q_EMIT pressed(key.name);
                }
            }
        }
        free(event);
    }
}

} // namespace mirrowisp
