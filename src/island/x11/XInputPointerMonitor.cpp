#include "island/x11/XInputPointerMonitor.h"

#include "base/Log.h"
#include "island/NativePixels.h"
#include "island/x11/XcbReply.h"

#include <QFile>
#include <QSocketNotifier>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xinput.h>

namespace mirrowisp {

namespace {

constexpr uint32_t leftButton = 1;
// Buttons 4 to 7 are wheel steps, not presses.
bool isWheel(uint32_t button) {
    return button >= 4 && button <= 7;
}

} // namespace

// What one read of the connection brought, in order, so that a quick click inside one burst still
// reads as a press and then a release.
struct XInputPointerMonitor::Burst {
    struct Button {
        uint32_t button;
        bool pressed;
    };
    bool motion = false;
    bool draggedMotion = false;
    std::vector<Button> buttons;

    bool empty() const { return !motion && buttons.empty(); }
};

XInputPointerMonitor::XInputPointerMonitor(const QString& display, QObject* parent) : QObject(parent) {
    if (!open(display)) {
        logLine(QStringLiteral("Mirrowisp: no global pointer (") + error_ +
                QStringLiteral("); the island follows the pointer over its own window only"));
        close();
    }
}

XInputPointerMonitor::~XInputPointerMonitor() {
    close();
}

bool XInputPointerMonitor::open(const QString& display) {
    const QByteArray name = QFile::encodeName(display);
    int screenNumber = 0;
    connection_ = xcb_connect(display.isEmpty() ? nullptr : name.constData(), &screenNumber);
    if (xcb_connection_has_error(connection_) != 0) {
        error_ = QStringLiteral("cannot connect to the X display");
        return false;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < screenNumber && screens.rem > 1; ++i) {
        xcb_screen_next(&screens);
    }
    root_ = screens.data->root;

    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(connection_, &xcb_input_id);
    if (xinput == nullptr || xinput->present == 0) {
        error_ = QStringLiteral("the X server has no XInput extension");
        return false;
    }
    xinputOpcode_ = xinput->major_opcode;
    const XcbReply<xcb_input_xi_query_version_reply_t> version(xcb_input_xi_query_version_reply(
        connection_, xcb_input_xi_query_version(connection_, 2, 2), nullptr));
    if (!version || version->major_version < 2) {
        error_ = QStringLiteral("the X server has no XInput 2");
        return false;
    }

    // XWayland (21.1 and later) names itself through an extension of its own.
    static constexpr char xwaylandExtension[] = "XWAYLAND";
    const XcbReply<xcb_query_extension_reply_t> xwayland(xcb_query_extension_reply(
        connection_, xcb_query_extension(connection_, sizeof(xwaylandExtension) - 1, xwaylandExtension),
        nullptr));
    xwayland_ = xwayland && xwayland->present != 0;
    if (xwayland_) {
        logLine(QStringLiteral("Mirrowisp: XWayland reports the pointer over the app's own windows only"));
    }

    struct {
        xcb_input_event_mask_t head;
        uint32_t bits;
    } mask{};
    mask.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    mask.head.mask_len = 1;
    mask.bits = XCB_INPUT_XI_EVENT_MASK_RAW_MOTION | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS |
                XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE;
    const XcbReply<xcb_generic_error_t> failed(xcb_request_check(
        connection_, xcb_input_xi_select_events_checked(connection_, root_, 1, &mask.head)));
    if (failed) {
        error_ = QStringLiteral("the X server refused raw pointer events");
        return false;
    }

    notifier_ =
        std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &XInputPointerMonitor::readEvents);
    // Events may already wait in xcb's queue, where the descriptor no longer shows them.
    readEvents();
    return true;
}

void XInputPointerMonitor::close() {
    notifier_.reset();
    if (connection_ != nullptr) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
    }
}

void XInputPointerMonitor::readEvents() {
    if (connection_ == nullptr) {
        return;
    }
    Burst burst;
    const auto take = [&](xcb_generic_event_t* raw) {
        const XcbReply<xcb_generic_event_t> event(raw);
        if ((event->response_type & 0x7f) != XCB_GE_GENERIC) {
            return;
        }
        const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event.get());
        if (generic->extension != xinputOpcode_) {
            return;
        }
        switch (generic->event_type) {
        case XCB_INPUT_RAW_MOTION:
            burst.motion = true;
            burst.draggedMotion = burst.draggedMotion || leftHeld_;
            break;
        case XCB_INPUT_RAW_BUTTON_PRESS:
        case XCB_INPUT_RAW_BUTTON_RELEASE: {
            const auto* button = reinterpret_cast<const xcb_input_raw_button_press_event_t*>(event.get());
            const bool pressed = generic->event_type == XCB_INPUT_RAW_BUTTON_PRESS;
            if (isWheel(button->detail)) {
                break;
            }
            if (button->detail == leftButton) {
                leftHeld_ = pressed;
            }
            burst.buttons.push_back({button->detail, pressed});
            break;
        }
        default:
            break;
        }
    };

    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        take(event);
    }
    while (!burst.empty()) {
        report(burst);
        burst = {};
        // Events read while waiting for the pointer's position stay queued in xcb, unseen by the
        // descriptor: take them now.
        while (xcb_generic_event_t* event = xcb_poll_for_queued_event(connection_)) {
            take(event);
        }
    }
    if (xcb_connection_has_error(connection_) != 0) {
        error_ = QStringLiteral("the X connection broke");
        logLine(QStringLiteral("Mirrowisp: global pointer lost: ") + error_);
        close();
    }
}

void XInputPointerMonitor::report(const Burst& burst) {
    const XcbReply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(connection_, xcb_query_pointer(connection_, root_), nullptr));
    if (!pointer) {
        return;
    }
    const QPoint position = NativePixels::toLogical(QPoint(pointer->root_x, pointer->root_y));
    if (burst.motion) {
        Q_EMIT moved(position);
    }
    for (const Burst::Button& button : burst.buttons) {
        if (button.button == leftButton) {
            if (button.pressed) {
                Q_EMIT leftPressed(position);
            } else {
                Q_EMIT leftReleased(position);
            }
        } else if (button.pressed) {
            Q_EMIT otherPressed(position, static_cast<int>(button.button));
        }
    }
    if (burst.draggedMotion) {
        Q_EMIT leftDragged(position);
    }
}

} // namespace mirrowisp
