#include "system/AdaptivePoll.h"

namespace mirrowisp {

namespace {

constexpr double slow = 1.0;
constexpr double fast = 0.1;
constexpr double fastFor = 2.0;

} // namespace

AdaptivePoll::AdaptivePoll(const Clock& clock, std::unique_ptr<Timer> timer, std::function<void()> action)
    : clock_(clock), timer_(std::move(timer)), action_(std::move(action)) {
    timer_->fired = [this] { tick(); };
}

void AdaptivePoll::schedule(double interval) {
    interval_ = interval;
    timer_->start(interval, true);
}

void AdaptivePoll::boost() {
    const Timestamp now = clock_.now();
    const bool wasSlow = now > fastUntil_;
    fastUntil_ = now + fastFor;
    if (wasSlow) {
        schedule(fast);
    }
}

void AdaptivePoll::tick() {
    action_();
    if (interval_ == fast && clock_.now() > fastUntil_) {
        schedule(slow);
    }
}

} // namespace mirrowisp
