#pragma once

#include "island/IslandPanel.h"
#include "island/x11/X11InputShape.h"

#include <QQuickView>
#include <QStringList>
#include <QVariantMap>
#include <optional>

namespace mirrowisp {

// One screen's island as a real window: a transparent, frameless panel kept above every window on
// every desktop, out of the task bar and pager, which takes the pointer only inside the input region
// and never takes the keyboard unless a text field of the island asks for it.
//
// Loading views: `setContent(url, initialProperties)` loads the root QML file (its root item is
// sized to the panel) and hands it the models its required properties name; `engine()` (from
// QQuickView) takes image providers before that. Several islands may share one engine by passing it in.
//
// On the XCB platform the window manager hints and the input shape go straight to the native window.
// Nothing must call setFlags() after construction: the toolkit would rewrite the window type.
class IslandWindow final : public QQuickView, public IslandPanel {
    Q_OBJECT
public:
    // `engine` is shared and must outlive the window; without one the window makes its own.
    explicit IslandWindow(QQmlEngine* engine = nullptr);
    ~IslandWindow() override;
    IslandWindow(const IslandWindow&) = delete;
    IslandWindow& operator=(const IslandWindow&) = delete;

    // Loads `url` as the island's view with `initialProperties` set on its root object before it
    // completes. The QML errors when it cannot be loaded.
    std::optional<QStringList> setContent(const QUrl& url, const QVariantMap& initialProperties = {});

    void setFrame(const QRect& frame) override;
    void setInputRegion(const QRegion& region) override;
    void show() override;
    void hide() override;
    bool hasKeyboardFocus() const override;
    void releaseKeyboardFocus() override;

    // Takes the keyboard from whatever window has it, for a text field of the island. Called on its
    // own when an item that takes text input gets the active focus; releaseKeyboardFocus() hands the
    // keyboard back to the window that had it.
    void requestKeyboardFocus();

    QRect frame() const { return frame_; }
    QRegion inputRegion() const { return inputRegion_; }

Q_SIGNALS:
    // Escape was pressed while the island had the keyboard.
    void escapePressed();
    // Pointer events the window itself receives (inside the input region), in global coordinates.
    // Where no global pointer monitor works (XWayland) these are all the controller hears.
    void pointerMoved(QPoint global);
    void pointerPressed(QPoint global, Qt::MouseButton button);
    void pointerReleased(QPoint global, Qt::MouseButton button);
    // The pointer left the input region.
    void pointerLeft();
    // The input region was set anew: it may have come under, or gone from under, a resting pointer.
    void inputRegionChanged();
    // The island lost the keyboard to another window.
    void keyboardFocusLost();

protected:
    bool event(QEvent* event) override;

private:
    void prepareNativeWindow();
    void applyInputShape();
    void onActiveFocusItemChanged();
    void onActiveChanged();

    QRect frame_;
    QRegion inputRegion_;
    X11InputShape inputShape_;
    bool wantsKeyboard_ = false;
    bool wasActive_ = false;
    bool shapeAfterMap_ = false;
    quint32 previousFocus_ = 0;
};

} // namespace mirrowisp
