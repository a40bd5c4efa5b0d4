#include "io/Timer.h"

#include "io/Selector.h"

namespace io {

Timer::Deadline& Timer::Deadline::operator=(const Time& time)
{
    const Time before = value;
    value = time;
    for (SelectorBase* selector : owner->selectors)
        selector->noteDeadline(owner, before, value);
    return *this;
}

// The selectors find a timer by its deadline, so it leaves them while it still has one.
Timer::~Timer()
{
    leaveSelectors();
}

bool Timer::isReady()
{
    return Time::now() >= when.get();
}

bool Timer::wakeTime(Time* out)
{
    *out = when.get();
    return true;
}

}  // namespace io
