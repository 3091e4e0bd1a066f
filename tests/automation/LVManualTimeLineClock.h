#pragma once
// A wall clock the test moves by hand: wake-ups fire when the time passes them.
#include "automation/LVTimeLineClock.h"

#include <algorithm>
#include <memory>
#include <vector>

class LVManualTimeLineClock : public LVTimeLineClock {
public:
    explicit LVManualTimeLineClock(double now) : now_(now) {}
    double now() const override { return now_; }
    std::unique_ptr<LVWakeUp> wakeUpAt(double date, std::function<void()> fire) override
    {
        auto pending = std::make_shared<Pending>(Pending{date, std::move(fire)});
        pending_.push_back(pending);
        return std::make_unique<Handle>(pending);
    }
    // Moves the time and fires every live wake-up now due, earliest first.
    void advance(double seconds)
    {
        now_ += seconds;
        std::stable_sort(pending_.begin(), pending_.end(), [](const auto& a, const auto& b) { return a->date < b->date; });
        const auto due = pending_;
        for (const auto& pending : due) {
            if (pending->date > now_ || !pending->fire) continue;
            std::function<void()> fire = std::move(pending->fire);
            pending->fire = nullptr;
            fire();
        }
        std::erase_if(pending_, [](const auto& pending) { return !pending->fire; });
    }

private:
    struct Pending {
        double date;
        std::function<void()> fire;
    };
    struct Handle : LVWakeUp {
        explicit Handle(std::shared_ptr<Pending> pending) : pending(std::move(pending)) {}
        ~Handle() override { pending->fire = nullptr; }
        std::shared_ptr<Pending> pending;
    };
    double now_;
    std::vector<std::shared_ptr<Pending>> pending_;
};
