#include "island/DelayedTasks.h"

namespace mirrowisp {

TaskHandle TaskHandle::make(std::function<void()> work) {
    TaskHandle handle;
    handle.state_ = std::make_shared<State>(State{std::move(work), false});
    return handle;
}

void TaskHandle::cancel() {
    if (state_) {
        state_->finished = true;
        // Let go of whatever the work captured now, not when the timer finally fires.
        state_->work = nullptr;
    }
}

void TaskHandle::run() {
    if (!isPending()) {
        return;
    }
    state_->finished = true;
    // The work may drop the last other copy of this handle, so it runs from a local.
    const auto work = std::move(state_->work);
    state_->work = nullptr;
    if (work) {
        work();
    }
}

} // namespace mirrowisp
