#include "system/x11/X11MediaKeyGrab.h"

#include "system/x11/X11Keyboard.h"

#include <QSocketNotifier>
#include <algorithm>
#include <cstdlib>
#include <xcb/xcb.h>

namespace mirrowisp {

namespace {

using Key = MediaKeyTap::Key;

struct KeySym {
    uint32_t sym;
    Key key;
};
constexpr KeySym keySyms[] = {
    {0x1008FF13, Key::volumeUp},     {0x1008FF11, Key::volumeDown},     {0x1008FF12, Key::mute},
    {0x1008FF02, Key::brightnessUp}, {0x1008FF03, Key::brightnessDown}, {0x1008FF05, Key::keyboardUp},
    {0x1008FF06, Key::keyboardDown},
};

using X11Keyboard::lockCombinations;
// Shift+Alt asks for the fine steps.
constexpr uint16_t fineModifiers = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_1;

} // namespace

X11MediaKeyGrab::X11MediaKeyGrab(const QString& display, QObject* parent) : QObject(parent) {
    xcb_connection_t* connection = X11Keyboard::connect(display);
    if (connection == nullptr) {
        return;
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    for (const X11Keyboard::KeyCode& code : X11Keyboard::keyCodes(connection)) {
        for (const KeySym& entry : keySyms) {
            if (code.sym == entry.sym) {
                codes_.push_back({code.code, entry.key});
            }
        }
    }
    connection_ = connection;
    notifier_ =
        std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &X11MediaKeyGrab::readEvents);
}

X11MediaKeyGrab::~X11MediaKeyGrab() {
    notifier_.reset();
    if (connection_ != nullptr) {
        ungrabAll();
        xcb_disconnect(connection_);
    }
}

X11MediaKeyGrab::Result X11MediaKeyGrab::grab(const std::vector<Key>& keys) {
    if (connection_ == nullptr) {
        return keys.empty() ? Result::grabbed : Result::unavailable;
    }
    ungrabAll();
    std::vector<xcb_void_cookie_t> cookies;
    for (const Code& code : codes_) {
        if (std::find(keys.begin(), keys.end(), code.key) == keys.end()) {
            continue;
        }
        for (uint16_t extra : {uint16_t(0), fineModifiers}) {
            for (uint16_t locks : lockCombinations) {
                cookies.push_back(xcb_grab_key_checked(connection_, 1, root_, extra | locks, code.code,
                                                       XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
            }
        }
    }
    bool refused = false;
    for (xcb_void_cookie_t cookie : cookies) {
        xcb_generic_error_t* error = xcb_request_check(connection_, cookie);
        refused = refused || error != nullptr;
        free(error);
    }
    grabbed_ = keys;
    if (refused) {
        ungrabAll();
        return Result::heldByAnother;
    }
    return Result::grabbed;
}

void X11MediaKeyGrab::ungrabAll() {
    for (const Code& code : codes_) {
        if (std::find(grabbed_.begin(), grabbed_.end(), code.key) == grabbed_.end()) {
            continue;
        }
        for (uint16_t extra : {uint16_t(0), fineModifiers}) {
            for (uint16_t locks : lockCombinations) {
                xcb_ungrab_key(connection_, code.code, root_, extra | locks);
            }
        }
    }
    xcb_flush(connection_);
    grabbed_.clear();
    down_.clear();
}

void X11MediaKeyGrab::emitKey(const Code& code, uint32_t state, bool repeat, uint16_t modifiers) {
    uint32_t flags = 0;
    if ((modifiers & XCB_MOD_MASK_SHIFT) != 0) {
        flags |= MediaKeyTap::shiftFlag;
    }
    if ((modifiers & XCB_MOD_MASK_1) != 0) {
        flags |= MediaKeyTap::optionFlag;
    }
    if (onKey) {
        onKey(MediaKeyTap::encode(code.key, state, repeat), flags);
    }
}

void X11MediaKeyGrab::readEvents() {
    std::vector<xcb_generic_event_t*> events;
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        events.push_back(event);
    }
    for (size_t i = 0; i < events.size(); ++i) {
        const uint8_t type = events[i]->response_type & 0x7f;
        if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE) {
            continue;
        }
        const auto* key = reinterpret_cast<xcb_key_press_event_t*>(events[i]);
        const auto code = std::find_if(codes_.begin(), codes_.end(),
                                       [key](const Code& entry) { return entry.code == key->detail; });
        if (code == codes_.end()) {
            continue;
        }
        const bool isDown = std::find(down_.begin(), down_.end(), key->detail) != down_.end();
        if (type == XCB_KEY_PRESS) {
            if (!isDown) {
                down_.push_back(key->detail);
            }
            emitKey(*code, MediaKeyTap::pressState, isDown, key->state);
            continue;
        }
        // The server's auto-repeat: a release and a press of the same key at the same moment.
        if (i + 1 < events.size() && (events[i + 1]->response_type & 0x7f) == XCB_KEY_PRESS) {
            const auto* next = reinterpret_cast<xcb_key_press_event_t*>(events[i + 1]);
            if (next->detail == key->detail && next->time == key->time) {
                emitKey(*code, MediaKeyTap::pressState, true, next->state);
                ++i;
                continue;
            }
        }
        std::erase(down_, key->detail);
        emitKey(*code, MediaKeyTap::releaseState, false, key->state);
    }
    for (xcb_generic_event_t* event : events) {
        free(event);
    }
}

} // namespace mirrowisp
