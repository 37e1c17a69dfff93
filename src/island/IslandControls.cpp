#include "island/IslandControls.h"

#include "island/NotchViewModel.h"
#include "island/NotchWindowController.h"

namespace mirrowisp {

IslandControls::IslandControls(NotchWindowController& controller, QObject* parent)
    : QObject(parent), controller_(&controller) {}

void IslandControls::closeIsland() {
    if (controller_) {
        controller_->closeIsland();
    }
}

void IslandControls::open(const QString& tab) {
    if (controller_) {
        controller_->open(NotchTabs::fromRawValue(tab), false);
    }
}

void IslandControls::menuOpened() {
    if (controller_) {
        controller_->menuOpened();
    }
}

void IslandControls::menuClosed() {
    if (controller_) {
        controller_->menuClosed();
    }
}

void IslandControls::setPopupShown(bool shown) {
    if (controller_) {
        controller_->setPopupShown(shown);
    }
}

void IslandControls::setDropTargeted(bool targeted) {
    if (controller_) {
        controller_->model().setIsDropTargeted(targeted);
    }
}

} // namespace mirrowisp
