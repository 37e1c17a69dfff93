#include "island/x11/X11KeyGrab.h"

#include <QFile>
#include <QSocketNotifier>
#include <cstdlib>
#include <xcb/xcb.h>

namespace mirrowisp {

namespace {

// The lock modifiers (Caps Lock, Num Lock as Mod2) must not stop the keys from working.
constexpr uint16_t lockCombinations[] = {0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
                                         XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};

} // namespace

X11KeyGrab::X11KeyGrab(const QString& keys, const QString& display, QObject* parent) : QObject(parent) {
    const QByteArray name = QFile::encodeName(display);
    xcb_connection_t* connection = xcb_connect(display.isEmpty() ? nullptr : name.constData(), nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return;
    }
    const xcb_setup_t* setup = xcb_get_setup(connection);
    root_ = xcb_setup_roots_iterator(setup).data->root;
    // The key codes that carry the characters in the current layout, from the server's mapping (the
    // Latin-1 characters are their own key symbols).
    const uint8_t first = setup->min_keycode;
    const uint8_t count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    xcb_get_keyboard_mapping_reply_t* mapping = xcb_get_keyboard_mapping_reply(
        connection, xcb_get_keyboard_mapping(connection, first, count), nullptr);
    if (mapping != nullptr) {
        const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(mapping);
        const int perCode = mapping->keysyms_per_keycode;
        for (int code = 0; code < count; ++code) {
            const xcb_keysym_t sym = perCode > 0 ? syms[code * perCode] : 0;
            if (sym > 0 && sym < 0x100 && keys.contains(QChar(static_cast<char16_t>(sym)))) {
                keys_.push_back(
                    {static_cast<uint8_t>(first + code), QString(QChar(static_cast<char16_t>(sym)))});
            }
        }
        free(mapping);
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
        for (uint16_t modifiers : lockCombinations) {
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
