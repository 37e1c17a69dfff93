#include "island/DecisionCardActions.h"

#include "agents/AgentStore.h"

#include <QTimer>
#include <cmath>

namespace mirrowisp {

DecisionCardActions::DecisionCardActions(AgentStore& store, Schedule schedule,
                                         std::function<void()> closeAutomaticallyOpened)
    : store_(store), schedule_(std::move(schedule)),
      closeAutomaticallyOpened_(std::move(closeAutomaticallyOpened)) {}

void DecisionCardActions::done() const {
    size_t waiting = 0;
    for (const auto& session : store_.sessions()) {
        waiting += session->pending().size();
    }
    if (waiting != 0 || !schedule_ || !closeAutomaticallyOpened_) {
        return; // more cards wait, and the island stays for them
    }
    schedule_(closeDelay, closeAutomaticallyOpened_);
}

DecisionCardActions::Schedule DecisionCardActions::timerSchedule() {
    return [](double seconds, std::function<void()> task) {
        QTimer::singleShot(static_cast<int>(std::lround(seconds * 1000)), Qt::PreciseTimer, std::move(task));
    };
}

} // namespace mirrowisp
