#pragma once

#include <QString>
#include <cstdint>
#include <vector>
#include <xcb/xcb.h>

namespace mirrowisp::X11Keyboard {

// Caps Lock and Num Lock (Mod2) must not stop a grabbed key from working: every grab is made once
// for each of their combinations.
inline constexpr uint16_t lockCombinations[] = {0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
                                                XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};

// A connection to `display` (the default one when empty), or null when the server can't be reached.
xcb_connection_t* connect(const QString& display);

struct KeyCode {
    uint8_t code;
    uint32_t sym; // the key's first symbol in the server's current layout
};
// Every key code of the server's keyboard mapping with its first key symbol.
std::vector<KeyCode> keyCodes(xcb_connection_t* connection);

} // namespace mirrowisp::X11Keyboard
