#pragma once

#include "island/DelayedTasks.h"
#include "island/IslandEnvironment.h"
#include "island/IslandGeometry.h"
#include "island/NotchScreen.h"
#include "island/NotchTab.h"

#include <QObject>
#include <QPointF>
#include <QRegion>
#include <memory>
#include <optional>

namespace mirrowisp {

class IslandPanel;
class NotchViewModel;

// The pointer events an island reacts to, wherever on the desktop they happen.
enum class IslandMouseEvent { leftMouseDown, mouseMoved, leftMouseDragged, leftMouseUp };

// Decides from pointer events when one screen's island hovers, opens and closes. Its window never
// moves or resizes; instead the window takes the pointer only over the island (the input region),
// so a large transparent panel can lie over the desktop's top panel without stealing clicks.
// Main thread only.
class NotchWindowController : public QObject {
    Q_OBJECT

public:
    NotchWindowController(const NotchScreen& screen, IslandEnvironment env,
                          const IslandPanelFactory& makePanel, QObject* parent = nullptr);
    ~NotchWindowController() override;

    NotchViewModel& model() { return *model_; }
    const NotchViewModel& model() const { return *model_; }
    const NotchScreen& screen() const { return screen_; }
    quint32 screenID() const;
    // The window, or nothing when the factory made none.
    IslandPanel* panel() const { return panel_.get(); }
    // The rectangles as of the last change of model or screen.
    const IslandGeometry& geometry() const { return geometry_; }

    // Follows a change of the screen's geometry or of the fake notch width.
    void update(const NotchScreen& screen);

    // Every pointer event, the desktop's and the app's own, with the pointer's global position.
    void handleMouse(IslandMouseEvent kind, QPointF globalPos);
    // Escape pressed in the app: closes an open island unless a text field takes the key.
    // Returns whether the key was used up.
    bool handleEscape();

    // Opens on `tab`, or on the content's preferred tab when none is given and the island was closed.
    // An automatic open never takes over an island the user opened.
    void open(std::optional<NotchTab> tab, bool automatic);
    void closeIsland();
    // Closes after `delay` seconds if the pointer is still away then.
    void scheduleClose(double delay);

    // Menus of the panel's buttons; while one tracks, the island stays open.
    void menuOpened();
    void menuClosed();
    // A popover of the panel is shown or gone; it too holds the island open.
    void setPopupShown(bool shown);
    bool isShowingPopup() const { return openMenus_ > 0 || popupShown_; }

    // Incremented by every open, so delayed work can tell that it went stale.
    int openCount() const { return openCount_; }
    // Whether the pointer is outside the interactive area as of the last pointer check.
    bool ignoresMouseEvents() const { return ignoresMouseEvents_; }
    // A drag from another application hovers in the drag zone: the window takes the whole zone, so
    // the drop can land anywhere in it.
    bool isTakingDrag() const { return takingDrag_; }
    // A text field of this island holds the keyboard.
    bool hasKeyboardFocus() const;
    bool isPointerOver(double grownBy) const;

Q_SIGNALS:
    void ignoresMouseEventsChanged(bool ignores);

private:
    enum class Haptic { levelChange, alignment };
    static void perform(Haptic pattern);

    void updateMouseIgnoring(QPointF at);
    // Re-takes the rectangles and writes the input region if it moved.
    void refreshGeometry();
    void handleOpenIsland(IslandMouseEvent kind, QPointF at);
    void handleClosedIsland(IslandMouseEvent kind, QPointF at);
    // Another application drags content with the left button, begun away from the island.
    bool isDraggingIn() const;
    void handleDrag(QPointF at);
    void setTakingDrag(bool taking);
    void finishScheduledClose();

    IslandEnvironment env_;
    NotchScreen screen_;
    // Declared before the panel: the window binds to the model and goes first.
    std::unique_ptr<NotchViewModel> model_;
    std::unique_ptr<IslandPanel> panel_;
    IslandGeometry geometry_;
    std::optional<QRegion> inputRegion_;
    TaskHandle hoverWork_;
    TaskHandle closeWork_;
    int openCount_ = 0;
    int openMenus_ = 0;
    bool popupShown_ = false;
    bool ignoresMouseEvents_ = true;
    int dragChangeCountAtMouseDown_ = 0;
    bool mouseDownInsideIsland_ = false;
    bool leftButtonDown_ = false;
    bool takingDrag_ = false;
};

} // namespace mirrowisp
