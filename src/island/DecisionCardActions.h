#pragma once

#include <functional>

namespace mirrowisp {

class AgentStore;

// What every card does after its button: it lets the island go once nothing else waits. The delay
// lets the card's own exit animation run before the panel closes.
class DecisionCardActions {
public:
    // Runs a task after a number of seconds on the main thread.
    using Schedule = std::function<void(double seconds, std::function<void()> task)>;

    static constexpr double closeDelay = 0.25;

    DecisionCardActions(AgentStore& store, Schedule schedule, std::function<void()> closeAutomaticallyOpened);

    AgentStore& store() const { return store_; }

    // Called after a card handed its result to the store. An island the user opened by hand is not
    // closed here: closeAutomaticallyOpened decides that.
    void done() const;

    // The production schedule: a single-shot timer on the main thread.
    static Schedule timerSchedule();

private:
    AgentStore& store_;
    Schedule schedule_;
    std::function<void()> closeAutomaticallyOpened_;
};

} // namespace mirrowisp
