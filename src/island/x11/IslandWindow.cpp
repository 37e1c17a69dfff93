#include "island/x11/IslandWindow.h"

#include "base/Log.h"
#include "island/x11/X11PanelHints.h"
#include "island/x11/XcbReply.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPlatformSurfaceEvent>
#include <QQmlError>
#include <QQuickItem>
#include <cmath>

namespace mirrowisp {

namespace {

xcb_connection_t* xcbConnection() {
    auto* x11 = qGuiApp != nullptr ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 != nullptr ? x11->connection() : nullptr;
}

xcb_window_t rootWindow(xcb_connection_t* connection) {
    return xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
}

xcb_window_t inputFocus(xcb_connection_t* connection) {
    const XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    return focus ? focus->focus : xcb_window_t{XCB_WINDOW_NONE};
}

// The shape is set in device pixels; a rectangle that falls between pixels keeps them all.
QRegion toDevicePixels(const QRegion& logical, qreal ratio) {
    if (qFuzzyCompare(ratio, 1.0)) {
        return logical;
    }
    QRegion device;
    for (const QRect& rect : logical) {
        const QRectF scaled(QPointF(rect.topLeft()) * ratio, QSizeF(rect.size()) * ratio);
        device += QRect(
            QPoint(static_cast<int>(std::floor(scaled.left())), static_cast<int>(std::floor(scaled.top()))),
            QPoint(static_cast<int>(std::ceil(scaled.right())) - 1,
                   static_cast<int>(std::ceil(scaled.bottom())) - 1));
    }
    return device;
}

} // namespace

IslandWindow::IslandWindow(QQmlEngine* engine) : QQuickView(engine, nullptr) {
    // Without WindowDoesNotAcceptFocus the toolkit asks for activation on every click; the keyboard
    // is taken through the X server instead, only when a text field wants it.
    setFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus);
    QSurfaceFormat surface = requestedFormat();
    surface.setAlphaBufferSize(8);
    setFormat(surface);
    setColor(Qt::transparent);
    setResizeMode(QQuickView::SizeRootObjectToView);
    setTitle(QStringLiteral("Mirrowisp"));
    // Mapped with a user time of zero, so the manager leaves the keyboard where it is.
    setProperty("_q_showWithoutActivating", true);
    connect(this, &QQuickWindow::activeFocusItemChanged, this, &IslandWindow::onActiveFocusItemChanged);
    connect(this, &QWindow::activeChanged, this, &IslandWindow::onActiveChanged);
}

IslandWindow::~IslandWindow() {
    // The base classes drop the focus item and the activation while they are torn down; by then this
    // part of the object is gone and its slots must not run.
    disconnect(this, &QQuickWindow::activeFocusItemChanged, this, nullptr);
    disconnect(this, &QWindow::activeChanged, this, nullptr);
}

std::optional<QStringList> IslandWindow::setContent(const QUrl& url, const QVariantMap& initialProperties) {
    setInitialProperties(initialProperties);
    setSource(url);
    if (status() != QQuickView::Error) {
        return std::nullopt;
    }
    QStringList messages;
    const auto failures = errors();
    for (const QQmlError& error : failures) {
        messages << error.toString();
    }
    logLine(QStringLiteral("Mirrowisp: island view did not load: ") + messages.join(QStringLiteral("; ")));
    return messages;
}

void IslandWindow::setFrame(const QRect& frame) {
    frame_ = frame;
    // A fixed size in the normal hints: managers neither resize the panel nor offer to.
    setMinimumSize(frame.size());
    setMaximumSize(frame.size());
    setGeometry(frame);
    applyInputShape();
}

void IslandWindow::setInputRegion(const QRegion& region) {
    inputRegion_ = region;
    applyInputShape();
    Q_EMIT inputRegionChanged();
}

void IslandWindow::show() {
    // The hints are written from the show event, which comes before the map, so they hold also when
    // something shows the window through QWindow.
    QQuickView::show();
}

void IslandWindow::hide() {
    if (hasKeyboardFocus() || wantsKeyboard_) {
        releaseKeyboardFocus();
    }
    QQuickView::hide();
}

bool IslandWindow::hasKeyboardFocus() const {
    if (!isVisible()) {
        return false;
    }
    xcb_connection_t* connection = xcbConnection();
    if (connection == nullptr || handle() == nullptr) {
        return isActive();
    }
    // Asked of the server: the toolkit waits a moment for a focus that might come back before it
    // calls a window inactive, and sees a new focus only once its event has been read.
    return inputFocus(connection) == static_cast<xcb_window_t>(winId());
}

void IslandWindow::requestKeyboardFocus() {
    xcb_connection_t* connection = xcbConnection();
    if (connection == nullptr || !isVisible()) {
        return;
    }
    const auto window = static_cast<xcb_window_t>(winId());
    if (!wantsKeyboard_) {
        const xcb_window_t active = X11PanelHints::activeWindow(connection, rootWindow(connection));
        previousFocus_ = active != window ? active : xcb_window_t{XCB_WINDOW_NONE};
    }
    wantsKeyboard_ = true;
    X11PanelHints::setAcceptsFocus(connection, window, true);
    X11PanelHints::requestActivation(connection, rootWindow(connection), window);
    // Managers may refuse to activate a dock; the focus is then set directly, as a client that
    // manages its own focus does.
    xcb_set_input_focus(connection, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
    xcb_flush(connection);
}

void IslandWindow::releaseKeyboardFocus() {
    if (!wantsKeyboard_ && !isActive()) {
        return;
    }
    wantsKeyboard_ = false;
    const xcb_window_t previous = previousFocus_;
    previousFocus_ = XCB_WINDOW_NONE;
    xcb_connection_t* connection = xcbConnection();
    if (connection == nullptr || handle() == nullptr) {
        return;
    }
    // The field gives up its focus too: no cursor blinks where typing no longer goes.
    if (QQuickItem* item = activeFocusItem(); item != nullptr && item != contentItem()) {
        item->setFocus(false);
    }
    const auto window = static_cast<xcb_window_t>(winId());
    X11PanelHints::setAcceptsFocus(connection, window, false);
    if (inputFocus(connection) != window) {
        return;
    }
    if (previous != XCB_WINDOW_NONE) {
        X11PanelHints::requestActivation(connection, rootWindow(connection), previous);
    } else {
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_POINTER_ROOT,
                            XCB_CURRENT_TIME);
        xcb_flush(connection);
    }
}

bool IslandWindow::event(QEvent* event) {
    switch (event->type()) {
    case QEvent::MouseMove:
        Q_EMIT pointerMoved(static_cast<QMouseEvent*>(event)->globalPosition().toPoint());
        break;
    case QEvent::MouseButtonPress: {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        Q_EMIT pointerPressed(mouse->globalPosition().toPoint(), mouse->button());
        break;
    }
    case QEvent::MouseButtonRelease: {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        Q_EMIT pointerReleased(mouse->globalPosition().toPoint(), mouse->button());
        break;
    }
    case QEvent::Enter:
        Q_EMIT pointerMoved(static_cast<QEnterEvent*>(event)->globalPosition().toPoint());
        break;
    case QEvent::Leave:
        Q_EMIT pointerLeft();
        break;
    case QEvent::KeyPress: {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Escape && !key->isAutoRepeat()) {
            Q_EMIT escapePressed();
        }
        break;
    }
    case QEvent::Show:
        prepareNativeWindow();
        shapeAfterMap_ = true;
        break;
    case QEvent::Expose:
        // Some managers (openbox) copy the input shape onto their frame only when it changes after
        // they took the window; the shape set before mapping is sent again once it is on screen.
        if (shapeAfterMap_ && isExposed()) {
            shapeAfterMap_ = false;
            inputShape_.forget();
            applyInputShape();
        }
        break;
    case QEvent::PlatformSurface:
        if (static_cast<QPlatformSurfaceEvent*>(event)->surfaceEventType() ==
            QPlatformSurfaceEvent::SurfaceCreated) {
            prepareNativeWindow();
        } else {
            inputShape_.forget();
        }
        break;
    default:
        break;
    }
    const bool handled = QQuickView::event(event);
    if (event->type() == QEvent::MouseButtonPress) {
        // A press on a field that already had the focus changes no focus item, yet asks for the keyboard.
        onActiveFocusItemChanged();
    }
    return handled;
}

void IslandWindow::prepareNativeWindow() {
    xcb_connection_t* connection = xcbConnection();
    if (connection == nullptr || handle() == nullptr) {
        return;
    }
    // Only ever called before the window is mapped: managers read the state and desktop when they
    // take a window, drop them when it is withdrawn, and must not see them rewritten in between.
    const auto window = static_cast<xcb_window_t>(winId());
    X11PanelHints::apply(connection, window);
    X11PanelHints::setAcceptsFocus(connection, window, wantsKeyboard_);
    applyInputShape();
}

void IslandWindow::applyInputShape() {
    xcb_connection_t* connection = xcbConnection();
    if (connection == nullptr || handle() == nullptr) {
        return;
    }
    const QPoint origin = frame_.isNull() ? position() : frame_.topLeft();
    inputShape_.apply(connection, static_cast<xcb_window_t>(winId()),
                      toDevicePixels(inputRegion_.translated(-origin), devicePixelRatio()));
}

void IslandWindow::onActiveFocusItemChanged() {
    const QQuickItem* item = activeFocusItem();
    if (item != nullptr && item->flags().testFlag(QQuickItem::ItemAcceptsInputMethod) &&
        !hasKeyboardFocus()) {
        requestKeyboardFocus();
    }
}

void IslandWindow::onActiveChanged() {
    const bool active = isActive();
    if (wasActive_ && !active) {
        // The user moved to another window: the keyboard is theirs again without handing it back.
        if (wantsKeyboard_) {
            wantsKeyboard_ = false;
            previousFocus_ = XCB_WINDOW_NONE;
            if (xcb_connection_t* connection = xcbConnection();
                connection != nullptr && handle() != nullptr) {
                X11PanelHints::setAcceptsFocus(connection, static_cast<xcb_window_t>(winId()), false);
            }
        }
        Q_EMIT keyboardFocusLost();
    }
    wasActive_ = active;
}

} // namespace mirrowisp
