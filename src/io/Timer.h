// A selectable with a deadline.
//
// There is no arming: the owner assigns `when` and adds the timer to a selector. A timer that has
// fired stays ready until it is removed or gets a later deadline.
#pragma once

#include "io/Selectable.h"

namespace io {

class Timer : public virtual Selectable {
public:
    // The deadline. Assigned as a whole, so that the selectors that order timers by it learn of
    // every change.
    class Deadline {
    public:
        explicit Deadline(Timer* timer) : owner(timer) {}
        Deadline(const Deadline&) = delete;
        Deadline& operator=(const Deadline&) = delete;
        Deadline& operator=(const Time& time);
        operator const Time&() const { return value; }
        const Time& get() const { return value; }

    private:
        Timer* owner;
        Time value = Time::infinity;
    };

    Timer() : when(this) {}
    ~Timer() override;

    std::string name() const override { return "Timer"; }
    bool isReady() override;  // now is at or past `when`
    bool wakeTime(Time* out) override;

    Deadline when;
};

}  // namespace io
