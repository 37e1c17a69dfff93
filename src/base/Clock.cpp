#include "base/Clock.h"

#include <chrono>

namespace mirrowisp {

Timestamp SystemClock::now() const {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

const Clock& SystemClock::shared() {
    static const SystemClock clock;
    return clock;
}

} // namespace mirrowisp
