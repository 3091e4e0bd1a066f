#pragma once
// Wall-clock time and one-shot wake-ups for the wait steps. The system clock arms Qt timers
// on the main thread; tests move a manual clock by hand instead of sleeping.
#include <functional>
#include <memory>

// A pending wake-up; destroying it cancels it.
class LVWakeUp {
public:
    virtual ~LVWakeUp() = default;
};

class LVTimeLineClock {
public:
    virtual ~LVTimeLineClock() = default;
    // Seconds since 1970.
    virtual double now() const = 0;
    // Calls fire once at date (seconds since 1970); a date already past fires on the next pass.
    virtual std::unique_ptr<LVWakeUp> wakeUpAt(double date, std::function<void()> fire) = 0;
};

LVTimeLineClock& LVSystemTimeLineClock();
