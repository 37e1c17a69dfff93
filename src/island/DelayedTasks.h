#pragma once

#include <functional>
#include <memory>

namespace mirrowisp {

// A piece of work waiting to run later, which its owner may call off until then. Copies share the
// same task. A default-made handle stands for no task at all.
class TaskHandle {
public:
    TaskHandle() = default;
    // A task that runs `work` when the scheduler calls run().
    static TaskHandle make(std::function<void()> work);

    // Drops the work; a later run() does nothing.
    void cancel();
    // Neither run nor cancelled yet.
    bool isPending() const { return state_ && !state_->finished; }
    // Runs the work once, unless it was cancelled; for schedulers.
    void run();

private:
    struct State {
        std::function<void()> work;
        bool finished = false;
    };
    std::shared_ptr<State> state_;
};

// Runs work after a delay on the main thread. The app uses timers; tests move time by hand.
class DelayedTasks {
public:
    virtual ~DelayedTasks() = default;
    // Runs `work` after `seconds`. Dropping the handle does not cancel the task.
    virtual TaskHandle schedule(double seconds, std::function<void()> work) = 0;
};

} // namespace mirrowisp
