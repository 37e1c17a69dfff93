#include "island/x11/X11PanelHints.h"

#include "island/x11/XcbReply.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace mirrowisp::X11PanelHints {

namespace {

constexpr uint32_t allDesktops = 0xFFFFFFFF;
constexpr uint32_t inputHintFlag = 1; // InputHint in WM_HINTS.flags
constexpr uint32_t wmHintsLength = 9; // longs in a full WM_HINTS property

// Interns every name with one round trip for the lot.
template <std::size_t N>
std::array<xcb_atom_t, N> intern(xcb_connection_t* connection, const std::array<const char*, N>& names) {
    std::array<xcb_intern_atom_cookie_t, N> cookies{};
    for (std::size_t i = 0; i < N; ++i) {
        cookies[i] = xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(names[i])), names[i]);
    }
    std::array<xcb_atom_t, N> atoms{};
    for (std::size_t i = 0; i < N; ++i) {
        const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection, cookies[i], nullptr));
        atoms[i] = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }
    return atoms;
}

void replaceAtoms(xcb_connection_t* connection, xcb_window_t window, xcb_atom_t property,
                  const std::vector<xcb_atom_t>& values) {
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, property, XCB_ATOM_ATOM, 32,
                        static_cast<uint32_t>(values.size()), values.data());
}

} // namespace

void apply(xcb_connection_t* connection, xcb_window_t window) {
    const auto atoms = intern<10>(connection, {"_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DOCK",
                                               "_NET_WM_STATE", "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY",
                                               "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER",
                                               "_NET_WM_DESKTOP", "WM_PROTOCOLS", "WM_TAKE_FOCUS"});
    // A dock is what managers keep above normal windows, undecorated, unplaced and out of focus
    // cycling, which is everything the panel needs; the states say the same for those that ask them.
    replaceAtoms(connection, window, atoms[0], {atoms[1]});
    replaceAtoms(connection, window, atoms[2], {atoms[3], atoms[4], atoms[5], atoms[6]});
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atoms[7], XCB_ATOM_CARDINAL, 32, 1,
                        &allDesktops);
    // Without WM_TAKE_FOCUS the input hint alone decides: a click on the panel never moves the
    // keyboard, not even to hand it to the toolkit, which would only ignore the offer.
    const XcbReply<xcb_get_property_reply_t> protocols(xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, window, atoms[8], XCB_ATOM_ATOM, 0, 32), nullptr));
    if (protocols && protocols->format == 32) {
        const auto* values = static_cast<const xcb_atom_t*>(xcb_get_property_value(protocols.get()));
        std::vector<xcb_atom_t> kept(values, values + xcb_get_property_value_length(protocols.get()) / 4);
        std::erase(kept, atoms[9]);
        replaceAtoms(connection, window, atoms[8], kept);
    }
    xcb_flush(connection);
}

void setAcceptsFocus(xcb_connection_t* connection, xcb_window_t window, bool accepts) {
    std::array<uint32_t, wmHintsLength> hints{};
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection,
        xcb_get_property(connection, 0, window, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 0, wmHintsLength),
        nullptr));
    if (reply && reply->format == 32) {
        const auto length = std::min<uint32_t>(xcb_get_property_value_length(reply.get()) / 4, wmHintsLength);
        std::memcpy(hints.data(), xcb_get_property_value(reply.get()), length * sizeof(uint32_t));
    }
    // Keep the window group and the rest the toolkit wrote; only the input field changes.
    hints[0] |= inputHintFlag;
    hints[1] = accepts ? 1 : 0;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 32,
                        wmHintsLength, hints.data());
    xcb_flush(connection);
}

xcb_window_t activeWindow(xcb_connection_t* connection, xcb_window_t root) {
    const auto atoms = intern<1>(connection, {"_NET_ACTIVE_WINDOW"});
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, root, atoms[0], XCB_ATOM_WINDOW, 0, 1), nullptr));
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4) {
        return XCB_WINDOW_NONE;
    }
    xcb_window_t window = XCB_WINDOW_NONE;
    std::memcpy(&window, xcb_get_property_value(reply.get()), sizeof(window));
    return window;
}

void requestActivation(xcb_connection_t* connection, xcb_window_t root, xcb_window_t window) {
    const auto atoms = intern<1>(connection, {"_NET_ACTIVE_WINDOW"});
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atoms[0];
    event.data.data32[0] = 2; // source: a pager, acting for the user
    event.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(connection, 0, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(connection);
}

} // namespace mirrowisp::X11PanelHints
