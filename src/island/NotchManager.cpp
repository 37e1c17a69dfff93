#include "island/NotchManager.h"

#include "app/Preferences.h"
#include "island/DelayedTasks.h"
#include "island/NotchViewModel.h"
#include "island/NotchWindowController.h"
#include "island/PointerSource.h"
#include "island/ScreenSource.h"

#include <QPointer>
#include <QSet>
#include <algorithm>

namespace mirrowisp {

NotchManager::NotchManager(ScreenSource& screens, IslandEnvironment env, IslandPanelFactory makePanel,
                           QObject* parent)
    : QObject(parent), screens_(screens), env_(env), makePanel_(std::move(makePanel)) {}

NotchManager::~NotchManager() {
    // The source may outlive us; it must not call into a dead manager.
    if (started_) {
        screens_.setOnChange(nullptr);
    }
}

void NotchManager::start() {
    if (started_) {
        return;
    }
    started_ = true;
    rebuild();
    screens_.setOnChange([this] { rebuild(); });
    // Qt signals after the value is stored, so the rebuild reads the new setting directly. A Linux
    // screen locker covers every window, so the lock-screen setting has nothing to move: its
    // rebuild only keeps the islands in step with it.
    for (auto signal : {&Preferences::displayChoiceChanged, &Preferences::fakeNotchWidthChanged,
                        &Preferences::lockScreenEnabledChanged}) {
        connect(&env_.prefs, signal, this, &NotchManager::rebuild);
    }
}

QList<NotchScreen> NotchManager::targetScreens() const {
    if (!isEnabled_) {
        return {};
    }
    const QList<NotchScreen> all = screens_.screens();
    switch (env_.prefs.displayChoice()) {
    case DisplayChoice::automatic: {
        // A screen with a camera housing first; else the primary screen, which the source lists first.
        const auto notched =
            std::find_if(all.begin(), all.end(), [](const NotchScreen& s) { return s.hasPhysicalNotch(); });
        if (notched != all.end()) {
            return {*notched};
        }
        return all.isEmpty() ? QList<NotchScreen>{} : QList<NotchScreen>{all.first()};
    }
    case DisplayChoice::main:
        if (const auto primary = screens_.primaryScreen()) {
            return {*primary};
        }
        return all.isEmpty() ? QList<NotchScreen>{} : QList<NotchScreen>{all.first()};
    case DisplayChoice::allDisplays:
        return all;
    }
    return {};
}

void NotchManager::rebuild() {
    const QList<NotchScreen> targets = targetScreens();
    QSet<quint32> wanted;
    for (const NotchScreen& screen : targets) {
        wanted.insert(screen.displayID);
    }
    const auto before = controllers_.size();
    std::erase_if(controllers_, [&](const auto& c) { return !wanted.contains(c->screenID()); });
    bool changed = controllers_.size() != before;

    // Kept in the order of the screens, so the first island is the primary screen's.
    std::vector<std::unique_ptr<NotchWindowController>> ordered;
    for (const NotchScreen& screen : targets) {
        const auto matches = [&](const auto& c) { return c && c->screenID() == screen.displayID; };
        if (const auto placed = std::find_if(ordered.begin(), ordered.end(), matches);
            placed != ordered.end()) {
            // Screens that share an id share an island; the later one's geometry wins.
            (*placed)->update(screen);
        } else if (const auto kept = std::find_if(controllers_.begin(), controllers_.end(), matches);
                   kept != controllers_.end()) {
            (*kept)->update(screen);
            ordered.push_back(std::move(*kept));
        } else {
            ordered.push_back(std::make_unique<NotchWindowController>(screen, env_, makePanel_));
            changed = true;
        }
    }
    controllers_ = std::move(ordered);
    if (changed) {
        Q_EMIT controllersChanged();
    }
}

QList<NotchWindowController*> NotchManager::controllers() const {
    QList<NotchWindowController*> list;
    for (const auto& c : controllers_) {
        list.append(c.get());
    }
    return list;
}

NotchWindowController* NotchManager::controller(quint32 displayID) const {
    for (const auto& c : controllers_) {
        if (c->screenID() == displayID) {
            return c.get();
        }
    }
    return nullptr;
}

NotchWindowController* NotchManager::primaryController() const {
    const QPointF pointer = env_.pointer.position();
    for (const auto& c : controllers_) {
        if (c->screen().frame.contains(pointer.toPoint())) {
            return c.get();
        }
    }
    return controllers_.empty() ? nullptr : controllers_.front().get();
}

void NotchManager::handleMouse(IslandMouseEvent kind, QPointF globalPos) {
    for (const auto& c : controllers_) {
        c->handleMouse(kind, globalPos);
    }
}

bool NotchManager::handleEscape() {
    bool used = false;
    for (const auto& c : controllers_) {
        used = c->handleEscape() || used;
    }
    return used;
}

void NotchManager::closeAutomaticallyOpened() {
    for (const auto& c : controllers_) {
        if (c->model().isOpen() && c->model().openedAutomatically()) {
            c->closeIsland();
        }
    }
}

bool NotchManager::isShowingAgents() const {
    return std::any_of(controllers_.begin(), controllers_.end(), [](const auto& c) {
        return c->model().isOpen() && c->model().tab() == NotchTab::agents;
    });
}

bool NotchManager::isPointerOverOpenIsland() const {
    return std::any_of(controllers_.begin(), controllers_.end(),
                       [](const auto& c) { return c->model().isOpen() && c->isPointerOver(12); });
}

bool NotchManager::isTyping() const {
    return std::any_of(controllers_.begin(), controllers_.end(),
                       [](const auto& c) { return c->hasKeyboardFocus(); });
}

void NotchManager::showBriefly(NotchTab tab, double seconds) {
    NotchWindowController* target = primaryController();
    if (!target) {
        return;
    }
    target->open(tab, true);
    QPointer<NotchWindowController> weak(target);
    const int openCount = target->openCount();
    // A user who moved into the island, or any later open, keeps it open: the conditions alone
    // tell, so nothing needs cancelling.
    env_.tasks.schedule(seconds, [weak, openCount] {
        if (weak && weak->openCount() == openCount && weak->model().isOpen() &&
            weak->model().openedAutomatically()) {
            weak->closeIsland();
        }
    });
}

bool NotchManager::isAnyIslandOpen() const {
    return std::any_of(controllers_.begin(), controllers_.end(),
                       [](const auto& c) { return c->model().isOpen(); });
}

void NotchManager::openAgentsAutomatically() {
    if (NotchWindowController* target = primaryController()) {
        target->open(NotchTab::agents, true);
    }
}

} // namespace mirrowisp
