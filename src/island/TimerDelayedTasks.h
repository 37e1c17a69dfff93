#pragma once

#include "island/DelayedTasks.h"

#include <QObject>

namespace mirrowisp {

// Delayed work on the main event loop through single-shot timers. Tasks still waiting when this
// object goes away are dropped.
class TimerDelayedTasks final : public DelayedTasks {
public:
    TaskHandle schedule(double seconds, std::function<void()> work) override;

private:
    // The timers' context: destroying it disconnects every pending timer.
    QObject context_;
};

} // namespace mirrowisp
