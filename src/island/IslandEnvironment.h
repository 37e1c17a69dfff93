#pragma once

#include "island/IslandPanel.h"

#include <functional>
#include <memory>

namespace mirrowisp {

class AppModel;
class DelayedTasks;
class DragPasteboard;
class NotchViewModel;
class PointerSource;
class Preferences;
struct NotchScreen;

// What every island reads besides its own state. All of it outlives the islands.
struct IslandEnvironment {
    Preferences& prefs;
    // Whether a text field on an island is being edited.
    AppModel& app;
    DelayedTasks& tasks;
    const PointerSource& pointer;
    // Drags of other applications; without it a drag towards the island opens nothing.
    const DragPasteboard* drags;
};

// Makes the window of one screen's island around its model. The app makes real windows; tests fake
// them. A factory that returns nothing leaves an island without a window, whose steps then only
// change the model.
using IslandPanelFactory =
    std::function<std::unique_ptr<IslandPanel>(const NotchScreen& screen, NotchViewModel& model)>;

} // namespace mirrowisp
