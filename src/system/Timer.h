#pragma once

#include <functional>
#include <memory>

namespace mirrowisp {

// A timer on the main thread that the system controls arm; tests hand in one they fire by hand.
class Timer {
public:
    virtual ~Timer() = default;
    // (Re)starts it: `fired` runs after `seconds`, and then every `seconds` when `repeating`.
    virtual void start(double seconds, bool repeating) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;

    std::function<void()> fired;
};

using TimerFactory = std::function<std::unique_ptr<Timer>()>;

// A QTimer: precise below a second, coarse (a few percent of slack) for the one-second idle poll.
std::unique_ptr<Timer> makeQtTimer();

} // namespace mirrowisp
