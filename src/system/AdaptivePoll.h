#pragma once

#include "base/Clock.h"
#include "system/Timer.h"

#include <functional>
#include <memory>

namespace mirrowisp {

// Polls once a second while nothing moves, ten times a second for two seconds after a movement.
class AdaptivePoll {
public:
    AdaptivePoll(const Clock& clock, std::unique_ptr<Timer> timer, std::function<void()> action);

    void schedule(double interval);
    void boost();
    void stop() { timer_->stop(); }
    double interval() const { return interval_; }

private:
    void tick();

    const Clock& clock_;
    std::unique_ptr<Timer> timer_;
    std::function<void()> action_;
    double interval_ = 0;
    Timestamp fastUntil_ = 0;
};

} // namespace mirrowisp
