#pragma once

#include "app/AppModel.h"
#include "island/IslandEnvironment.h"
#include "island/NotchScreen.h"
#include "island/NotchTab.h"
#include "island/NotchWindowController.h"

#include <QList>
#include <QObject>
#include <memory>
#include <vector>

namespace mirrowisp {

class ScreenSource;

// Keeps one island for each screen that shall have one, and follows screens and settings.
// Main thread only.
class NotchManager : public QObject, public NotchPresenter {
    Q_OBJECT

public:
    NotchManager(ScreenSource& screens, IslandEnvironment env, IslandPanelFactory makePanel,
                 QObject* parent = nullptr);
    ~NotchManager() override;

    // Builds the islands, then rebuilds them whenever screens or the settings that place them change.
    void start();
    // Drops islands whose screen is no longer wanted, makes missing ones and updates the rest, so an
    // open island survives a change of arrangement.
    void rebuild();
    // The screens that get an island under the current settings, in the order of `screens`.
    QList<NotchScreen> targetScreens() const;

    // False means no island anywhere; takes effect at the next rebuild.
    bool isEnabled() const { return isEnabled_; }
    void setEnabled(bool enabled) { isEnabled_ = enabled; }

    // The islands in the order of their screens.
    QList<NotchWindowController*> controllers() const;
    NotchWindowController* controller(quint32 displayID) const;
    // The island on the screen under the pointer, else the first; nothing when there is none.
    // Automatic openings go here, so a request shows where the user is looking.
    NotchWindowController* primaryController() const;

    // A pointer event anywhere on the desktop, for every island to judge.
    void handleMouse(IslandMouseEvent kind, QPointF globalPos);
    // Escape in the app: closes the open islands unless a text field takes it; returns whether used.
    bool handleEscape();

    // Closes every island that opened by itself, once what it opened for is answered.
    void closeAutomaticallyOpened();
    bool isShowingAgents() const override;
    bool isPointerOverOpenIsland() const;
    // A text field on some island has the keyboard.
    bool isTyping() const;
    // Opens the primary island on `tab` by itself and closes it after `seconds`, unless the user
    // took it over or it was opened again meanwhile.
    void showBriefly(NotchTab tab, double seconds);
    bool isAnyIslandOpen() const override;
    void openAgentsAutomatically() override;

Q_SIGNALS:
    // Islands were made or dropped.
    void controllersChanged();

private:
    ScreenSource& screens_;
    IslandEnvironment env_;
    IslandPanelFactory makePanel_;
    std::vector<std::unique_ptr<NotchWindowController>> controllers_;
    bool isEnabled_ = true;
    bool started_ = false;
};

} // namespace mirrowisp
