// Selectors hand out, one at a time, the selectables that are ready.
//
// OsSelector waits for the platform, SelectorBase resolves stacking, Selector<T> adds a value
// per selectable. A selector owns nothing that is registered in it.
//
// A pass over all members before each wait would cost time in proportion to the idle ones. So the
// members fall into kinds, told apart by their exact class when they are added:
//   managed   objects of exactly the stream and connector classes, which call changed() whenever
//             their readiness or their wish to start an operation may have changed. Only those
//             in `attention` are looked at; outside it, issueOverlapped() would do nothing and
//             isReady() is false.
//   deadline  objects of exactly class Timer, kept in order of their deadlines.
//   polled    everything else: asked in every pass.
//   front     fronts of stacked selectables: no concern of the platform's wait; asked at each poll.
// A pass goes over what it visits in the order of addresses, as a full scan would. With
// NETCHECK_SHADOW_SCAN, each pass is checked against a full scan.
#pragma once

#include "common/assertion.h"
#include "io/NodeAllocator.h"
#include "io/Selectable.h"

#include <cstdint>
#include <optional>
#include <typeinfo>
#include <utility>
#include <vector>

namespace io {

// Declares that objects of exactly this class call changed() as told above.
void registerManagedClass(const std::type_info& type);

class OsSelector {
public:
    OsSelector() = default;
    OsSelector(const OsSelector&) = delete;
    OsSelector& operator=(const OsSelector&) = delete;

    // A managed member may have changed (called through Selectable::changed).
    void noteChanged(Selectable* s);
    // A timer among the members goes from one deadline to another.
    void noteDeadline(Selectable* timer, const Time& before, const Time& after);

    // Whether each pass is checked against a full scan: on from the start with
    // NETCHECK_SHADOW_SCAN. For tests that count calls.
    static bool shadowScan;

protected:
    ~OsSelector() = default;

    void addOs(Selectable* s);
    void removeOs(Selectable* s);
    void markReady(Selectable* s);
    // The next selectable that the platform or a deadline makes ready. With nonBlocking, throws
    // ENotReady rather than wait. Throws a system error if the platform's wait fails.
    Selectable* wait(bool nonBlocking);

    enum class Kind : std::uint8_t { managed, deadline, polled, front };
    static Kind kindOf(const Selectable& s);

private:
    friend void registerManagedClass(const std::type_info& type);
    using Deadline = std::pair<std::pair<std::int32_t, std::int32_t>, Selectable*>;
    struct Earliest {
        Time time = Time::infinity;
        Selectable* owner = nullptr;
    };

    Earliest scan();
    void visit(Selectable* s, Earliest* earliest);
    void verifyScan();
    void appendHandle(Selectable* s, platform::Handle handle);
    void dropHandle(Selectable* s);
    bool namesPlace(std::uint32_t result) const;

    PooledMap<Selectable*, Kind> os_avail;      // every member but fronts
    PooledSet<Selectable*> os_ready;            // found ready and not yet handed out
    std::optional<platform::WaitList> handles;  // made for the first handle
    std::vector<Selectable*> handle_owners;     // parallel to `handles`
    PooledMap<Selectable*, std::uint32_t> handle_index;

    PooledSet<Selectable*> attention;  // managed members to be looked at
    PooledSet<Selectable*> polled;
    PooledSet<Deadline> deadlines;
    std::vector<Selectable*> visited;  // by the latest scan; kept for its check alone
    unsigned completionsInARow = 0;    // waits that ended with completions while a deadline was due
};

class SelectorBase : public OsSelector {
public:
    SelectorBase() = default;
    virtual ~SelectorBase();

    // Takes a dying selectable out.
    virtual void removeSelectable(Selectable* s) = 0;

    // `back` is null for a selectable that a user adds.
    void add(Selectable* s, StackedSelectableBack* back);
    void remove(Selectable* s);
    // The next ready selectable that a user added. With nonBlocking, throws ENotReady rather
    // than wait. Throws a system error if the platform's wait fails.
    Selectable* pollImpl(bool nonBlocking);
    void processReady(Selectable* s);
    // `s`, just added, is ready already.
    void notifyReady(Selectable* s);

private:
    struct Registration {
        StackedSelectableBack* back = nullptr;  // null for one that a user added
        Kind kind = Kind::polled;
        std::uint32_t queued = 0;  // how often it stands in ready_list
    };

    static bool isActive(Selectable* s);
    void pushReady(Selectable* s, Registration& registration);

    PooledMap<Selectable*, Registration> avail;
    PooledSet<Selectable*> top_level;    // those of avail that users added
    PooledList<Selectable*> ready_list;  // to hand out, in order of arrival
    PooledSet<Selectable*> fronts;       // the members of avail that are fronts
};

template <class T>
class Selector : public SelectorBase {
public:
    ~Selector() override { values.clear(); }

    void add(Selectable* s, T value)
    {
        if (!values.emplace(s, value).second)
            assertion("Added selectable " + s->name() + " twice");
        SelectorBase::add(s, nullptr);
    }

    void remove(Selectable* s)
    {
        if (values.erase(s) == 0)
            assertion("The Selectable to remove: " + s->name() + " was not found in internal list");
        SelectorBase::remove(s);
    }

    // Blocks until a selectable is ready, and gives it with its value.
    std::pair<Selectable*, T> poll()
    {
        Selectable* s = pollImpl(false);
        auto found = values.find(s);
        if (found == values.end())
            assertion("pollImpl gave unknown selectable " + s->name());
        return {s, found->second};
    }

    void removeSelectable(Selectable* s) override
    {
        values.erase(s);
        SelectorBase::remove(s);
    }

private:
    PooledMap<Selectable*, T> values;
};

// Filled by stacking, polled through pollImpl.
class BareSelector : public SelectorBase {
public:
    void removeSelectable(Selectable* s) override { SelectorBase::remove(s); }
};

}  // namespace io
