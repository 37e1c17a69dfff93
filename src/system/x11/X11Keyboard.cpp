#include "system/x11/X11Keyboard.h"

#include <QFile>
#include <cstdlib>

namespace mirrowisp::X11Keyboard {

xcb_connection_t* connect(const QString& display) {
    const QByteArray name = QFile::encodeName(display);
    xcb_connection_t* connection = xcb_connect(display.isEmpty() ? nullptr : name.constData(), nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return nullptr;
    }
    return connection;
}

std::vector<KeyCode> keyCodes(xcb_connection_t* connection) {
    const xcb_setup_t* setup = xcb_get_setup(connection);
    const uint8_t first = setup->min_keycode;
    const uint8_t count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    xcb_get_keyboard_mapping_reply_t* mapping = xcb_get_keyboard_mapping_reply(
        connection, xcb_get_keyboard_mapping(connection, first, count), nullptr);
    std::vector<KeyCode> codes;
    if (mapping == nullptr) {
        return codes;
    }
    const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(mapping);
    const int perCode = mapping->keysyms_per_keycode;
    for (int code = 0; code < count && perCode > 0; ++code) {
        if (const xcb_keysym_t sym = syms[code * perCode]; sym != 0) {
            codes.push_back({static_cast<uint8_t>(first + code), sym});
        }
    }
    free(mapping);
    return codes;
}

} // namespace mirrowisp::X11Keyboard
