#include "island/DecisionCardActions.h"

#include "agents/AgentStore.h"

#include <QPointer>
#include <QTimer>
#include <cmath>

namespace mirrowisp {

DecisionCardActions::DecisionCardActions(AgentStore& store, Schedule schedule,
                                         std::function<void()> closeAutomaticallyOpened)
    : store_(store), schedule_(std::move(schedule)),
      closeAutomaticallyOpened_(std::move(closeAutomaticallyOpened)) {
    connect(&store_, &AgentStore::sessionsChanged, this, &DecisionCardActions::watchSessions);
    watchSessions();
}

void DecisionCardActions::watchSessions() {
    for (const auto& session : store_.sessions()) {
        connect(session.get(), &AgentSession::pendingChanged, this, &DecisionCardActions::countWaiting,
                Qt::UniqueConnection);
    }
    // A session that left took its decisions with it.
    countWaiting();
}

void DecisionCardActions::countWaiting() {
    size_t waiting = 0;
    for (const auto& session : store_.sessions()) {
        waiting += session->pending().size();
    }
    const bool lastWent = waiting == 0 && waiting_ != 0;
    waiting_ = waiting;
    if (lastWent && schedule_ && closeAutomaticallyOpened_) {
        // A request that comes within the delay keeps the island.
        schedule_(closeDelay, [weak = QPointer<DecisionCardActions>(this)] {
            if (weak && weak->waiting_ == 0) {
                weak->closeAutomaticallyOpened_();
            }
        });
    }
}

DecisionCardActions::Schedule DecisionCardActions::timerSchedule(QObject* context) {
    return [context](double seconds, std::function<void()> task) {
        QTimer::singleShot(static_cast<int>(std::lround(seconds * 1000)), Qt::PreciseTimer, context,
                           std::move(task));
    };
}

} // namespace mirrowisp
