#include "island/NotchWindowController.h"

#include "app/AppModel.h"
#include "app/Preferences.h"
#include "island/DragPasteboard.h"
#include "island/IslandPanel.h"
#include "island/NotchViewModel.h"
#include "island/PointerSource.h"

#include <QPointer>
#include <algorithm>

namespace mirrowisp {

namespace {
constexpr int panelWidth = 820;
constexpr int panelHeight = 560;

// What the shelf takes: files, text, links and image data, by the names X11 sources give them.
bool offersShelfContent(const QStringList& types) {
    return std::any_of(types.begin(), types.end(), [](const QString& type) {
        return type == QLatin1StringView("text/uri-list") ||
               type.startsWith(QLatin1StringView("text/plain")) || type == QLatin1StringView("UTF8_STRING") ||
               type == QLatin1StringView("STRING") || type == QLatin1StringView("text/x-moz-url") ||
               type == QLatin1StringView("_NETSCAPE_URL") || type == QLatin1StringView("image/png") ||
               type == QLatin1StringView("image/tiff");
    });
}
} // namespace

NotchWindowController::NotchWindowController(const NotchScreen& screen, IslandEnvironment env,
                                             const IslandPanelFactory& makePanel, QObject* parent)
    : QObject(parent), env_(env), screen_(screen),
      model_(std::make_unique<NotchViewModel>(screen.displayID, notchSize(screen, env.prefs.fakeNotchWidth()),
                                              screen.hasPhysicalNotch())) {
    if (makePanel) {
        panel_ = makePanel(screen_, *model_);
    }
    // Everything that moves a rectangle: the closed size follows hover and content, the target size
    // the open state and tab.
    for (auto signal : {&NotchViewModel::notchSizeChanged, &NotchViewModel::closedSizeChanged,
                        &NotchViewModel::secondariesChanged, &NotchViewModel::targetSizeChanged,
                        &NotchViewModel::isOpenChanged}) {
        connect(model_.get(), signal, this, &NotchWindowController::refreshGeometry);
    }
    update(screen_);
    if (panel_) {
        panel_->show();
    }
}

NotchWindowController::~NotchWindowController() {
    hoverWork_.cancel();
    closeWork_.cancel();
    // The window may outlive us for a moment (deleted later); it must not linger on screen.
    if (panel_) {
        panel_->hide();
    }
}

quint32 NotchWindowController::screenID() const {
    return model_->screenID();
}

void NotchWindowController::update(const NotchScreen& screen) {
    screen_ = screen;
    model_->setNotchSize(notchSize(screen_, env_.prefs.fakeNotchWidth()));
    model_->setHasPhysicalNotch(screen_.hasPhysicalNotch());
    if (panel_) {
        const QRect& frame = screen_.frame;
        panel_->setFrame(
            QRect(frame.x() + frame.width() / 2 - panelWidth / 2, frame.top(), panelWidth, panelHeight));
    }
    refreshGeometry();
}

void NotchWindowController::refreshGeometry() {
    geometry_ = IslandGeometry(screen_.frame, *model_);
    // The region is the pass-through trick itself, and it keeps working where the app sees no pointer
    // motion outside its own windows (XWayland). Reshaping a window costs a round trip: only on change.
    QRegion region = geometry_.interactiveRegion();
    if (takingDrag_) {
        region += geometry_.dragZone().toAlignedRect();
    }
    if (region != inputRegion_) {
        inputRegion_ = region;
        if (panel_) {
            panel_->setInputRegion(region);
        }
    }
}

void NotchWindowController::handleMouse(IslandMouseEvent kind, QPointF at) {
    if (kind == IslandMouseEvent::leftMouseDown) {
        leftButtonDown_ = true;
        dragChangeCountAtMouseDown_ = env_.drags != nullptr ? env_.drags->changeCount() : 0;
        mouseDownInsideIsland_ =
            model_->isOpen() ? geometry_.openRectContains(at, 4) : geometry_.closedAreaContains(at);
    }
    if (kind == IslandMouseEvent::leftMouseDragged) {
        handleDrag(at);
        return;
    }
    // Plain motion comes along with a drag's own; while something is dragged in, the drag alone decides.
    if (kind == IslandMouseEvent::mouseMoved && isDraggingIn()) {
        return;
    }
    setTakingDrag(false);
    if (kind == IslandMouseEvent::leftMouseUp) {
        // The drop has landed or the drag was given up: the pass-through is back.
        leftButtonDown_ = false;
        updateMouseIgnoring(at);
        return;
    }
    updateMouseIgnoring(at);
    if (model_->isOpen()) {
        handleOpenIsland(kind, at);
    } else {
        handleClosedIsland(kind, at);
    }
}

void NotchWindowController::handleOpenIsland(IslandMouseEvent kind, QPointF at) {
    if (geometry_.openRectContains(at, 12)) {
        closeWork_.cancel();
        if (kind == IslandMouseEvent::mouseMoved) {
            // The user has taken the island over; from now on it closes when the pointer leaves.
            model_->setOpenedAutomatically(false);
        }
    } else if (isShowingPopup()) {
        closeWork_.cancel();
    } else if (kind == IslandMouseEvent::leftMouseDown) {
        closeIsland();
    } else if (!model_->openedAutomatically()) {
        // An island that opened by itself waits for its card to be answered, not for the pointer.
        scheduleClose(env_.prefs.hoverDelay());
    }
}

void NotchWindowController::handleClosedIsland(IslandMouseEvent kind, QPointF at) {
    const bool inside = geometry_.closedAreaContains(at);
    if (inside != model_->isHovering()) {
        hoverWork_.cancel();
        model_->setAnimation(inside ? QStringLiteral("hover") : QStringLiteral("hoverOut"));
        model_->setIsHovering(inside);
        if (inside && env_.prefs.openOnHover()) {
            QPointer<NotchWindowController> weak(this);
            hoverWork_ = env_.tasks.schedule(env_.prefs.hoverDelay(), [weak] {
                // A quick crossing left again before the delay: nothing opens.
                if (weak && weak->model_->isHovering()) {
                    weak->open(std::nullopt, false);
                }
            });
        }
    }
    if (inside && kind == IslandMouseEvent::leftMouseDown) {
        std::optional<NotchTab> tab;
        if (const auto bubble = geometry_.bubbleAt(at)) {
            const auto activity = model_->secondaries().at(*bubble).kind;
            tab = activity == SecondaryActivity::Case::agent ? NotchTab::agents : NotchTab::home;
        }
        open(tab, false);
    }
}

// A file, text or link dragged from another application towards the top of the screen opens the shelf
// and lets the window take the drop.
bool NotchWindowController::isDraggingIn() const {
    // Motion read in one go with the release still arrives as dragged: the button decides. A drag out of
    // the island itself, or a mouse drag that carries nothing (a window's title bar), is no drag in.
    return env_.prefs.shelfEnabled() && env_.drags != nullptr && leftButtonDown_ && !mouseDownInsideIsland_ &&
           env_.drags->changeCount() != dragChangeCountAtMouseDown_;
}

void NotchWindowController::handleDrag(QPointF at) {
    if (!isDraggingIn()) {
        return;
    }
    // A source that does not list its types is taken at its word when it drops.
    if (const std::optional<QStringList> types = env_.drags->types(); types && !offersShelfContent(*types)) {
        return;
    }
    const bool onShelf = model_->isOpen() && model_->tab() == NotchTab::shelf;
    if (geometry_.dragZone().contains(at)) {
        if (!onShelf) {
            open(NotchTab::shelf, false);
        }
        setTakingDrag(true);
        if (ignoresMouseEvents_) {
            ignoresMouseEvents_ = false;
            Q_EMIT ignoresMouseEventsChanged(false);
        }
        return;
    }
    setTakingDrag(false);
    if (onShelf && !geometry_.openRectContains(at, 40)) {
        closeIsland();
    }
}

void NotchWindowController::setTakingDrag(bool taking) {
    if (taking != takingDrag_) {
        takingDrag_ = taking;
        refreshGeometry();
    }
}

bool NotchWindowController::handleEscape() {
    if (!model_->isOpen() || env_.app.isEditingText()) {
        return false;
    }
    closeIsland();
    return true;
}

void NotchWindowController::open(std::optional<NotchTab> tab, bool automatic) {
    ++openCount_;
    closeWork_.cancel();
    hoverWork_.cancel();

    const bool wasOpen = model_->isOpen();
    if (!tab && !wasOpen) {
        tab = model_->primaryTab();
    }
    model_->setAnimation(wasOpen ? QStringLiteral("resize") : QStringLiteral("open"));
    if (tab) {
        model_->setTab(*tab);
    }
    model_->setIsOpen(true);
    model_->setIsHovering(false);

    if (wasOpen) {
        // An automatic request never takes an island from the user, nor marks it as its own.
        if (!automatic) {
            model_->setOpenedAutomatically(false);
        }
    } else {
        model_->setOpenedAutomatically(automatic);
        if (env_.prefs.hapticsEnabled()) {
            perform(Haptic::levelChange);
        }
    }
    updateMouseIgnoring(env_.pointer.position());
}

void NotchWindowController::closeIsland() {
    hoverWork_.cancel();
    closeWork_.cancel();
    if (model_->isOpen() || model_->isHovering()) {
        if (model_->isOpen() && env_.prefs.hapticsEnabled()) {
            perform(Haptic::alignment);
        }
        model_->setAnimation(QStringLiteral("close"));
        model_->setIsOpen(false);
        model_->setIsHovering(false);
        model_->setIsDropTargeted(false);
        model_->setOpenedAutomatically(false);
        if (panel_ && panel_->hasKeyboardFocus()) {
            // A text field that disappears with the panel must not keep the keyboard.
            panel_->releaseKeyboardFocus();
            env_.app.setIsEditingText(false);
        }
    }
    updateMouseIgnoring(env_.pointer.position());
}

void NotchWindowController::scheduleClose(double delay) {
    // Typing holds the island open, wherever the pointer went.
    if (env_.app.isEditingText()) {
        return;
    }
    // Further moves do not restart a running countdown.
    if (closeWork_.isPending()) {
        return;
    }
    QPointer<NotchWindowController> weak(this);
    closeWork_ = env_.tasks.schedule(delay, [weak] {
        if (weak) {
            weak->finishScheduledClose();
        }
    });
}

void NotchWindowController::finishScheduledClose() {
    closeWork_ = {};
    if (isShowingPopup()) {
        return;
    }
    // The pointer may have come back, or the panel may have grown towards it, while we waited.
    const IslandGeometry now(screen_.frame, *model_);
    if (!now.openRectContains(env_.pointer.position(), 12)) {
        closeIsland();
    }
}

void NotchWindowController::menuOpened() {
    ++openMenus_;
}

void NotchWindowController::menuClosed() {
    if (openMenus_ > 0) {
        --openMenus_;
    }
}

void NotchWindowController::setPopupShown(bool shown) {
    popupShown_ = shown;
}

bool NotchWindowController::hasKeyboardFocus() const {
    return panel_ && panel_->hasKeyboardFocus();
}

bool NotchWindowController::isPointerOver(double grownBy) const {
    return geometry_.openRectContains(env_.pointer.position(), grownBy);
}

void NotchWindowController::updateMouseIgnoring(QPointF at) {
    const bool ignores = !geometry_.interactiveAreaContains(at);
    if (ignores != ignoresMouseEvents_) {
        ignoresMouseEvents_ = ignores;
        Q_EMIT ignoresMouseEventsChanged(ignores);
    }
}

// Linux desktops have no haptic trackpad to drive; the moments stay marked for when one appears.
void NotchWindowController::perform(Haptic) {}

} // namespace mirrowisp
