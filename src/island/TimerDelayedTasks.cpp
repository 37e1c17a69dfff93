#include "island/TimerDelayedTasks.h"

#include <QTimer>
#include <algorithm>
#include <cmath>

namespace mirrowisp {

TaskHandle TimerDelayedTasks::schedule(double seconds, std::function<void()> work) {
    TaskHandle handle = TaskHandle::make(std::move(work));
    const int ms = static_cast<int>(std::lround(std::max(0.0, seconds) * 1000.0));
    QTimer::singleShot(ms, Qt::PreciseTimer, &context_, [handle]() mutable { handle.run(); });
    return handle;
}

} // namespace mirrowisp
