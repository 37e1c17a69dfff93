#include "system/Timer.h"

#include <QTimer>
#include <cmath>

namespace mirrowisp {

namespace {

class QtTimer final : public Timer {
public:
    QtTimer() {
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            if (fired) {
                fired();
            }
        });
    }
    void start(double seconds, bool repeating) override {
        timer_.setSingleShot(!repeating);
        timer_.setTimerType(seconds >= 1.0 ? Qt::CoarseTimer : Qt::PreciseTimer);
        timer_.start(static_cast<int>(std::lround(seconds * 1000)));
    }
    void stop() override { timer_.stop(); }
    bool isActive() const override { return timer_.isActive(); }

private:
    QTimer timer_;
};

} // namespace

std::unique_ptr<Timer> makeQtTimer() {
    return std::make_unique<QtTimer>();
}

} // namespace mirrowisp
