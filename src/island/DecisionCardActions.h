#pragma once

#include <QObject>
#include <functional>

namespace mirrowisp {

class AgentStore;

// Lets the island go once nothing waits any more, whichever way the last decision went: a card's
// button, `ctl`, the agent's own prompt, the tool giving up, a new turn. The delay lets the card's
// own exit animation run before the panel closes.
class DecisionCardActions : public QObject {
    Q_OBJECT

public:
    // Runs a task after a number of seconds on the main thread.
    using Schedule = std::function<void(double seconds, std::function<void()> task)>;

    static constexpr double closeDelay = 0.25;

    DecisionCardActions(AgentStore& store, Schedule schedule, std::function<void()> closeAutomaticallyOpened);

    AgentStore& store() const { return store_; }

    // The production schedule: a single-shot timer on the main thread, dropped with `context`.
    static Schedule timerSchedule(QObject* context);

private:
    void watchSessions();
    // Counts the waiting decisions; the step to none schedules the close. An island the user opened
    // by hand is not closed: closeAutomaticallyOpened decides that.
    void countWaiting();

    AgentStore& store_;
    Schedule schedule_;
    std::function<void()> closeAutomaticallyOpened_;
    size_t waiting_ = 0;
};

} // namespace mirrowisp
