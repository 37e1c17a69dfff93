#pragma once

namespace mirrowisp {

// Seconds since the Unix epoch. Every time in the program is a floating-point number of seconds,
// so rules such as "30 s exactly stays, 30.1 s goes" read the same in code and in tests.
using Timestamp = double;

// Time is a parameter: logic that depends on it reads a Clock, and tests hand in one they drive.
class Clock {
public:
    virtual ~Clock() = default;
    virtual Timestamp now() const = 0;
};

class SystemClock final : public Clock {
public:
    Timestamp now() const override;
    // The process-wide clock of the running app.
    static const Clock& shared();
};

} // namespace mirrowisp
