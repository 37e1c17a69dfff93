#include "island/x11/X11DragWatch.h"

#include "base/Log.h"
#include "island/x11/XcbReply.h"

#include <QFile>
#include <QSocketNotifier>
#include <cstring>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

namespace mirrowisp {

namespace {

xcb_atom_t internAtom(xcb_connection_t* connection, const char* name) {
    const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

// A source lists a few dozen types at most; a longer list is cut, not trusted to be sane.
constexpr uint32_t maxTypes = 256;

} // namespace

X11DragWatch::X11DragWatch(const QString& display, QObject* parent) : QObject(parent) {
    if (!open(display)) {
        logLine(QStringLiteral("Mirrowisp: drags of other applications go unseen (no XFixes); drop onto the "
                               "island itself"));
        close();
    }
}

X11DragWatch::~X11DragWatch() {
    close();
}

bool X11DragWatch::open(const QString& display) {
    const QByteArray name = QFile::encodeName(display);
    int screenNumber = 0;
    connection_ = xcb_connect(display.isEmpty() ? nullptr : name.constData(), &screenNumber);
    if (xcb_connection_has_error(connection_) != 0) {
        return false;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < screenNumber && screens.rem > 1; ++i) {
        xcb_screen_next(&screens);
    }
    const xcb_window_t root = screens.data->root;
    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(connection_, &xcb_xfixes_id);
    if (xfixes == nullptr || xfixes->present == 0) {
        return false;
    }
    firstEvent_ = xfixes->first_event;
    // XFixes answers nothing else until its version has been asked.
    const XcbReply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
        connection_,
        xcb_xfixes_query_version(connection_, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION), nullptr));
    if (!version || version->major_version < 1) {
        return false;
    }
    const xcb_atom_t selection = internAtom(connection_, "XdndSelection");
    typeListAtom_ = internAtom(connection_, "XdndTypeList");
    if (selection == XCB_ATOM_NONE) {
        return false;
    }
    xcb_xfixes_select_selection_input(connection_, root, selection,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER);
    xcb_flush(connection_);
    notifier_ =
        std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &X11DragWatch::readEvents);
    readEvents();
    return true;
}

void X11DragWatch::close() {
    notifier_.reset();
    if (connection_ != nullptr) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
    }
}

void X11DragWatch::readEvents() {
    if (connection_ == nullptr) {
        return;
    }
    bool began = false;
    while (xcb_generic_event_t* raw = xcb_poll_for_event(connection_)) {
        const XcbReply<xcb_generic_event_t> event(raw);
        if ((event->response_type & 0x7f) != firstEvent_ + XCB_XFIXES_SELECTION_NOTIFY) {
            continue;
        }
        const auto* notify = reinterpret_cast<const xcb_xfixes_selection_notify_event_t*>(event.get());
        // A source that gives the selection up ends its drag; only a new owner begins one.
        if (notify->owner != XCB_WINDOW_NONE) {
            owner_ = notify->owner;
            ++changeCount_;
            began = true;
        }
    }
    if (xcb_connection_has_error(connection_) != 0) {
        logLine(QStringLiteral("Mirrowisp: the drag watch lost its X connection"));
        close();
    }
    if (began) {
        Q_EMIT changed();
    }
}

std::optional<QStringList> X11DragWatch::types() const {
    if (connection_ == nullptr || changeCount_ == 0) {
        return std::nullopt;
    }
    if (typesCount_ == changeCount_) {
        return types_;
    }
    typesCount_ = changeCount_;
    types_.reset();
    // Sources with three types or fewer may name them only in their messages to the target.
    const XcbReply<xcb_get_property_reply_t> list(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, owner_, typeListAtom_, XCB_ATOM_ATOM, 0, maxTypes),
        nullptr));
    if (!list || list->format != 32 || xcb_get_property_value_length(list.get()) == 0) {
        return types_;
    }
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(list.get()));
    const int count = xcb_get_property_value_length(list.get()) / 4;
    std::vector<xcb_get_atom_name_cookie_t> cookies;
    for (int i = 0; i < count; ++i) {
        cookies.push_back(xcb_get_atom_name(connection_, atoms[i]));
    }
    QStringList names;
    for (const xcb_get_atom_name_cookie_t& cookie : cookies) {
        const XcbReply<xcb_get_atom_name_reply_t> name(xcb_get_atom_name_reply(connection_, cookie, nullptr));
        if (name) {
            names.append(QString::fromLatin1(xcb_get_atom_name_name(name.get()),
                                             xcb_get_atom_name_name_length(name.get())));
        }
    }
    types_ = names;
    return types_;
}

} // namespace mirrowisp
