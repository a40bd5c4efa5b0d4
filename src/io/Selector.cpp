#include "io/Selector.h"

#include "common/errors.h"
#include "io/Stream.h"
#include "io/Timer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

namespace io {
namespace {

// A deadline that is due waits for this many completions in a row, then goes first: a peer that
// never stops sending can't hold it up.
constexpr unsigned maxCompletionsInARow = 16;

std::vector<const std::type_info*>& managedClasses()
{
    static std::vector<const std::type_info*> classes;
    return classes;
}

// What was found out about classes, by the address of their type information: a class is
// compared by name and cast once, not at every registration.
struct KnownClass {
    const std::type_info* type = nullptr;
    std::uint8_t kind = 0;
};
constexpr std::size_t knownClassCount = 64;
std::array<KnownClass, knownClassCount>& knownClasses()
{
    static std::array<KnownClass, knownClassCount> classes;
    return classes;
}

KnownClass& knownClass(const std::type_info& type)
{
    const auto address = reinterpret_cast<std::uintptr_t>(&type);
    return knownClasses()[(address / alignof(std::type_info) ^ address / 512) % knownClassCount];
}

// Milliseconds until the time, rounded up: a wait that ends early would only have to be repeated.
std::uint32_t millisecondsUntil(const Time& time)
{
    if (time == Time::infinity)
        return platform::INFINITE;
    const Time left = time - Time::now();
    if (left <= Time())
        return 0;
    const double milliseconds = std::ceil(static_cast<double>(left) * 1000.0);
    // A finite wait must not become an endless one by its low bits.
    return std::min(static_cast<std::uint32_t>(static_cast<std::uint64_t>(milliseconds)),
                    platform::INFINITE - 1);
}

}  // namespace

void registerManagedClass(const std::type_info& type)
{
    managedClasses().push_back(&type);
    knownClasses().fill({});
}

// ---- OsSelector ----------------------------------------------------------------------------

#ifdef NETCHECK_SHADOW_SCAN
bool OsSelector::shadowScan = true;
#else
bool OsSelector::shadowScan = false;
#endif

OsSelector::Kind OsSelector::kindOf(const Selectable& s)
{
    const std::type_info& type = typeid(s);
    KnownClass& known = knownClass(type);
    if (known.type == &type)
        return static_cast<Kind>(known.kind);

    Kind kind = Kind::polled;
    const auto& managed = managedClasses();
    if (dynamic_cast<const StackedSelectableFront*>(&s))
        kind = Kind::front;
    else if (type == typeid(Timer))
        kind = Kind::deadline;
    else if (std::any_of(managed.begin(), managed.end(), [&](auto* one) { return *one == type; }))
        kind = Kind::managed;
    known = {&type, static_cast<std::uint8_t>(kind)};
    return kind;
}

void OsSelector::addOs(Selectable* s)
{
    const Kind kind = kindOf(*s);
    if (kind == Kind::front)
        assertion("Tried to add StackedSelectableFront to OsSelector");
    if (!os_avail.emplace(s, kind).second)
        assertion("Selectable allready added to selector: " + s->name());
    if (kind == Kind::managed) {
        attention.insert(s);
    } else if (kind == Kind::polled) {
        polled.insert(s);
    } else {
        Time time;
        s->wakeTime(&time);
        deadlines.insert({{time.sec, time.usec}, s});
    }
    const platform::Handle handle = s->osHandle();
    if (handle != platform::Handle::none)
        appendHandle(s, handle);
}

void OsSelector::removeOs(Selectable* s)
{
    const auto found = os_avail.find(s);
    if (found == os_avail.end())
        assertion("Selectable to remove not on selector");
    const Kind kind = found->second;
    os_avail.erase(found);
    os_ready.erase(s);
    if (kind == Kind::managed) {
        attention.erase(s);
    } else if (kind == Kind::polled) {
        polled.erase(s);
    } else {
        Time time;
        s->wakeTime(&time);
        deadlines.erase({{time.sec, time.usec}, s});
    }
    dropHandle(s);
}

void OsSelector::markReady(Selectable* s)
{
    if (!os_avail.contains(s))
        assertion(s->name() + " not found on os_avail!");
    os_ready.insert(s);
}

void OsSelector::appendHandle(Selectable* s, platform::Handle handle)
{
    if (!handles)
        handles.emplace();
    handle_index[s] = static_cast<std::uint32_t>(handles->size());
    handles->append(handle);
    handle_owners.push_back(s);
}

void OsSelector::dropHandle(Selectable* s)
{
    const auto found = handle_index.find(s);
    if (found == handle_index.end())
        return;
    const std::uint32_t index = found->second;
    handle_index.erase(found);
    Selectable* const last = handle_owners.back();
    if (last != s) {
        handle_owners[index] = last;
        handle_index[last] = index;
    }
    handle_owners.pop_back();
    handles->removeSwapLast(index);
}

// True if the result of a wait names a place of the wait list. A long list has places whose
// numbers are those of other results; but those come only while no handle is signalled.
bool OsSelector::namesPlace(std::uint32_t result) const
{
    if (result >= handle_owners.size())
        return false;
    if (result != platform::WAIT_IO_COMPLETION && result != platform::WAIT_TIMEOUT)
        return true;
    return handles->isSignalled(result);
}

void OsSelector::noteChanged(Selectable* s)
{
    const auto found = os_avail.find(s);
    if (found != os_avail.end() && found->second == Kind::managed)
        attention.insert(s);
}

void OsSelector::noteDeadline(Selectable* timer, const Time& before, const Time& after)
{
    // Objects of classes derived from Timer are polled and stand in no order.
    if (deadlines.erase({{before.sec, before.usec}, timer}) != 0)
        deadlines.insert({{after.sec, after.usec}, timer});
}

// Goes over what may be ready or may have something to start, in the order of addresses. Members
// can come and go while their operations run, so the next one is searched anew each time; one
// that is noted at an address already passed is left to the next pass.
OsSelector::Earliest OsSelector::scan()
{
    Earliest earliest;
    visited.clear();
    Selectable* passed = nullptr;
    for (;;) {
        const auto noted = attention.upper_bound(passed);
        const auto foreign = polled.upper_bound(passed);
        if (noted == attention.end() && foreign == polled.end())
            break;
        if (foreign == polled.end() ||
            (noted != attention.end() && std::less<>()(*noted, *foreign)))
            passed = *noted;
        else
            passed = *foreign;
        visit(passed, &earliest);
    }

    if (!deadlines.empty()) {
        const auto& [key, timer] = *deadlines.begin();
        const Time time(key.first, key.second);
        const bool first =
            time == earliest.time && earliest.owner && std::less<>()(timer, earliest.owner);
        if (first || time < earliest.time)
            earliest = {time, timer};
    }
    return earliest;
}

void OsSelector::visit(Selectable* s, Earliest* earliest)
{
    if (shadowScan)
        visited.push_back(s);
    // It leaves the attention first, so that what changes from here on is noted again.
    auto noted = attention.extract(s);
    const auto keepNoted = [&] {
        if (noted)
            attention.insert(std::move(noted));
    };
    try {
        Time time;
        if (s->wakeTime(&time)) {
            if (time < earliest->time)
                *earliest = {time, s};
            s->issueOverlapped();
            keepNoted();
            return;
        }
        s->issueOverlapped();
        if (s->isReady()) {
            os_ready.insert(s);
            keepNoted();
        }
    } catch (...) {
        keepNoted();
        throw;
    }
}

// What was not visited must neither be ready nor have anything to start, and every timer must
// stand in the order at the deadline that it has.
void OsSelector::verifyScan()
{
    std::sort(visited.begin(), visited.end());
    for (const auto& [s, kind] : os_avail) {
        if (kind == Kind::deadline) {
            Time time;
            s->wakeTime(&time);
            if (!deadlines.contains({{time.sec, time.usec}, s}))
                assertion("Selector scan has a stale deadline of " + s->name());
        }
        if (kind != Kind::managed || attention.contains(s) ||
            std::binary_search(visited.begin(), visited.end(), s))
            continue;
        if (s->isReady())
            assertion("Selector scan passed over a ready selectable: " + s->name());
        const std::uint64_t before = platform::operationsStarted();
        s->issueOverlapped();
        if (platform::operationsStarted() != before)
            assertion("Selector scan passed over a selectable with an operation to start: " +
                      s->name());
    }
}

Selectable* OsSelector::wait(bool nonBlocking)
{
    for (;;) {
        while (!os_ready.empty()) {
            Selectable* const s = *os_ready.begin();
            os_ready.erase(os_ready.begin());
            Time time;
            if ((s->isReady() || s->osHandle() != platform::Handle::none) && !s->wakeTime(&time))
                return s;
        }

        const Earliest earliest = scan();
        if (shadowScan)
            verifyScan();
        if (!os_ready.empty())
            continue;

        std::uint32_t timeoutMs = millisecondsUntil(earliest.time);
        const bool deadlineDue = timeoutMs == 0;
        const bool wouldWait = timeoutMs != 0 && nonBlocking;
        if (wouldWait)
            timeoutMs = 0;

        std::uint32_t result;
        if (!handle_owners.empty()) {
            result = platform::waitForMultipleObjectsEx(*handles, timeoutMs);
        } else {
            result = platform::sleepEx(timeoutMs);
            if (result == 0)
                result = platform::WAIT_TIMEOUT;
        }

        if (namesPlace(result)) {
            Selectable* const owner = handle_owners[result];
            if (!owner->handleSignalled())
                return owner;
            continue;
        }
        if (result == platform::WAIT_FAILED)
            throwSystemError(platform::getLastError(), "WaitForMultipleEvents returned error");
        if (result == platform::WAIT_IO_COMPLETION) {
            completionsInARow = deadlineDue ? completionsInARow + 1 : 0;
            if (completionsInARow < maxCompletionsInARow)
                continue;
        }
        completionsInARow = 0;
        if (wouldWait)
            throw ENotReady(nullptr);
        if (earliest.owner && earliest.owner->isReady())
            return earliest.owner;
    }
}

// ---- SelectorBase --------------------------------------------------------------------------

SelectorBase::~SelectorBase()
{
    while (!top_level.empty())
        remove(*top_level.begin());
    if (!avail.empty())
        assertion("avail not empty in ~SelectorBase");
}

void SelectorBase::add(Selectable* s, StackedSelectableBack* back)
{
    const Kind kind = kindOf(*s);
    if (!avail.emplace(s, Registration{back, kind, 0}).second)
        assertion(s->name() + " added twice to Selector");
    if (!back)
        top_level.insert(s);
    if (kind == Kind::front)
        fronts.insert(s);
    else
        addOs(s);
    s->addSelector(this);
}

void SelectorBase::remove(Selectable* s)
{
    const auto found = avail.find(s);
    if (found == avail.end())
        assertion("Unknown " + s->name() + " removed twice from Selector");
    const Registration registration = found->second;
    avail.erase(found);
    top_level.erase(s);
    if (registration.queued != 0)
        ready_list.remove(s);
    if (registration.kind == Kind::front)
        fronts.erase(s);
    s->removeSelector(this);
    if (registration.kind != Kind::front)
        removeOs(s);
}

void SelectorBase::notifyReady(Selectable* s)
{
    const auto found = avail.find(s);
    if (found == avail.end())
        assertion(s->name() + " not found on avail map");
    if (found->second.kind == Kind::front)
        pushReady(s, found->second);
    else
        markReady(s);
}

void SelectorBase::pushReady(Selectable* s, Registration& registration)
{
    ready_list.push_back(s);
    ++registration.queued;
}

// One with a handle counts as active whatever the state of the handle.
bool SelectorBase::isActive(Selectable* s)
{
    Time time;
    return s->isReady() || s->osHandle() != platform::Handle::none ||
           (s->wakeTime(&time) && time <= Time::now());
}

Selectable* SelectorBase::pollImpl(bool nonBlocking)
{
    for (;;) {
        while (!ready_list.empty()) {
            Selectable* const s = ready_list.front();
            ready_list.pop_front();
            Registration& registration = avail.find(s)->second;
            --registration.queued;
            if (!registration.back && isActive(s))
                return s;
        }

        std::vector<Selectable*> active;
        for (Selectable* front : fronts)
            if (isActive(front))
                active.push_back(front);
        for (Selectable* front : active)
            processReady(front);
        if (ready_list.empty())
            processReady(wait(nonBlocking));
    }
}

void SelectorBase::processReady(Selectable* s)
{
    const auto found = avail.find(s);
    if (found == avail.end())
        assertion("SelectorBase::processReady got unknown Selectable " + s->name());
    StackedSelectableBack* const back = found->second.back;
    if (!back) {
        pushReady(s, found->second);
        return;
    }

    // As a rule this takes `s` out of `avail`.
    try {
        back->underlyingIsReady(s);
    } catch (const error::Exception& e) {
        const auto& owners = back->allFronts();
        assertion("[" + (owners.empty() ? std::string() : (*owners.begin())->name()) +
                  "]::underlyingIsReady(" + s->name() + "): " + e.text());
    }
    const auto& above = back->allFronts();
    for (auto next = above.begin(); next != above.end();) {
        StackedSelectableFront* const front = *next;
        if (front->isReady() && avail.contains(front))
            processReady(front);
        next = above.upper_bound(front);
    }
}

}  // namespace io
