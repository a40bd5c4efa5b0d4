// Everything that can become ready: a stream, a timer, a connection attempt, a queue.
//
// A selectable is registered in any number of selectors, which hand it out when it is ready.
// Stacking lets one selectable stand on top of another: the owner sees a front; the back watches
// what lies beneath and says when the front is ready.
#pragma once

#include "common/Time.h"
#include "io/NodeAllocator.h"
#include "platform/Overlapped.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace io {

class SelectorBase;
class StackedSelectableBack;

class Selectable {
public:
    Selectable() = default;
    Selectable(const Selectable&) = delete;
    Selectable& operator=(const Selectable&) = delete;

    // Takes the selectable out of all its selectors.
    virtual ~Selectable();

    virtual std::string name() const = 0;  // for messages

    // A waitable handle, or Handle::none.
    virtual platform::Handle osHandle() { return platform::Handle::none; }

    // True if a caller can act without blocking.
    virtual bool isReady() = 0;

    // The handle was signalled: false hands the selectable to the caller, true keeps waiting.
    virtual bool handleSignalled() { return false; }

    // Starts whatever overlapped operation the selectable wants to have running.
    virtual void issueOverlapped() {}

    // True if the selectable has a deadline, and gives it.
    virtual bool wakeTime(Time* out);

    virtual void addSelector(SelectorBase* selector);
    virtual void removeSelector(SelectorBase* selector);

    // Returns when the selectable is ready: at once if it is, else after a wait on it alone.
    // Completion routines of all streams run meanwhile, no handler does.
    void waitReady();

protected:
    // Tells the selectors that isReady() or what issueOverlapped() would do may have changed.
    // Classes known to the selectors as managed (see Selector.h) must call it at every such
    // change; for all others it is not needed.
    void changed();

    // Every selector that holds this selectable, oldest first.
    PooledList<SelectorBase*> selectors;

    // Removal from all selectors, for destructors of classes whose removal needs their own type.
    void leaveSelectors();

private:
    friend class StackedSelectableBack;
    std::vector<StackedSelectableBack*> watchers;  // told of the end of this selectable
};

// What the owner of a stacked selectable registers in a selector.
class StackedSelectableFront : public virtual Selectable {
public:
    explicit StackedSelectableFront(StackedSelectableBack* owner);
    ~StackedSelectableFront() override;

    bool isReady() override { return ready; }
    void addSelector(SelectorBase* selector) override;
    void removeSelector(SelectorBase* selector) override;

protected:
    friend class StackedSelectableBack;
    StackedSelectableBack* back;  // null once the back has been destroyed
    bool ready = false;           // set and cleared by the back's subclass
};

// What stands beneath one or more fronts. No selectable itself.
class StackedSelectableBack {
public:
    StackedSelectableBack() = default;
    StackedSelectableBack(const StackedSelectableBack&) = delete;
    StackedSelectableBack& operator=(const StackedSelectableBack&) = delete;
    virtual ~StackedSelectableBack();

    // `u` is ready. Clears what made it interesting, as a rule by watchUnderlying(u, false), and
    // sets the `ready` flag of the front.
    virtual void underlyingIsReady(Selectable* u) = 0;

    // Called by fronts.
    void addSelector(SelectorBase* selector);
    void removeSelector(SelectorBase* selector);

    // For selectors.
    const std::set<StackedSelectableFront*>& allFronts() const { return fronts; }

protected:
    // Starts or stops watching `u`, which stays its owner's.
    void watchUnderlying(Selectable* u, bool watch);

private:
    friend class Selectable;
    friend class StackedSelectableFront;

    bool forget(Selectable* u);

    std::set<Selectable*> underlying;  // what is watched now
    std::set<StackedSelectableFront*> fronts;
    std::map<SelectorBase*, std::int32_t> selectors;  // how many fronts stand in each
};

}  // namespace io
