#include "automation/LVTimeLineClock.h"

#include <QDateTime>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <climits>

namespace {

class LVTimerWakeUp : public LVWakeUp {
public:
    LVTimerWakeUp(double date, std::function<void()> fire) : date_(date), fire_(std::move(fire))
    {
        timer_.setSingleShot(true);
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, [this] { step(); });
        arm();
    }

private:
    // Long waits are re-armed in slices: a QTimer interval is an int of milliseconds.
    void arm()
    {
        const double left = (date_ - double(QDateTime::currentMSecsSinceEpoch()) / 1000.0) * 1000.0;
        timer_.start(int(std::clamp(left, 0.0, double(INT_MAX / 2))));
    }
    void step()
    {
        if (double(QDateTime::currentMSecsSinceEpoch()) / 1000.0 + 0.0005 < date_) return arm();
        // fire_ may destroy this wake-up: nothing is touched after it.
        std::function<void()> fire = std::move(fire_);
        fire();
    }

    double date_;
    std::function<void()> fire_;
    QTimer timer_;
};

class LVSystemClock : public LVTimeLineClock {
public:
    double now() const override { return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0; }
    std::unique_ptr<LVWakeUp> wakeUpAt(double date, std::function<void()> fire) override
    {
        return std::make_unique<LVTimerWakeUp>(date, std::move(fire));
    }
};

} // namespace

LVTimeLineClock& LVSystemTimeLineClock()
{
    static LVSystemClock clock;
    return clock;
}
