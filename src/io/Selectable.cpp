#include "io/Selectable.h"

#include "common/assertion.h"
#include "io/Selector.h"

#include <algorithm>

namespace io {

Selectable::~Selectable()
{
    leaveSelectors();
    for (StackedSelectableBack* watcher : watchers)
        watcher->underlying.erase(this);
}

bool Selectable::wakeTime(Time*)
{
    return false;
}

void Selectable::addSelector(SelectorBase* selector)
{
    selectors.push_back(selector);
    if (isReady())
        selector->notifyReady(this);
}

void Selectable::removeSelector(SelectorBase* selector)
{
    const auto found = std::find(selectors.begin(), selectors.end(), selector);
    if (found == selectors.end())
        assertion("Unable to remove selector in: " + name());
    selectors.erase(found);
}

void Selectable::waitReady()
{
    if (isReady())
        return;
    // Most often the transfer that is missing ends as soon as it is started, and a selector would
    // be built for nothing.
    issueOverlapped();
    platform::sleepEx(0);
    if (isReady())
        return;
    Selector<int> selector;
    selector.add(this, 0);
    Selectable* const ready = selector.poll().first;
    if (ready != this)
        assertion("Got wrong selectable in waitReady: " + ready->name());
}

void Selectable::changed()
{
    for (SelectorBase* selector : selectors)
        selector->noteChanged(this);
}

void Selectable::leaveSelectors()
{
    while (!selectors.empty())
        selectors.front()->removeSelectable(this);
}

StackedSelectableFront::StackedSelectableFront(StackedSelectableBack* owner) : back(owner)
{
    back->fronts.insert(this);
}

// Leaves the selectors while it still is a front: its removal has to reach the back, too.
StackedSelectableFront::~StackedSelectableFront()
{
    leaveSelectors();
    if (back)
        back->fronts.erase(this);
}

void StackedSelectableFront::addSelector(SelectorBase* selector)
{
    if (!back)
        assertion("Front " + name() + " added to a selector after the end of its back");
    Selectable::addSelector(selector);
    back->addSelector(selector);
}

void StackedSelectableFront::removeSelector(SelectorBase* selector)
{
    if (back)
        back->removeSelector(selector);
    Selectable::removeSelector(selector);
}

StackedSelectableBack::~StackedSelectableBack()
{
    while (!underlying.empty()) {
        Selectable* const u = *underlying.begin();
        for (const auto& [selector, count] : selectors)
            selector->remove(u);
        forget(u);
    }
    for (StackedSelectableFront* front : fronts) {
        front->leaveSelectors();
        front->back = nullptr;
    }
}

void StackedSelectableBack::addSelector(SelectorBase* selector)
{
    if (selectors[selector]++ != 0)
        return;
    for (Selectable* u : underlying)
        selector->add(u, this);
}

void StackedSelectableBack::removeSelector(SelectorBase* selector)
{
    const auto found = selectors.find(selector);
    if (found == selectors.end())
        assertion("StackedSelectableBack::removeSelector got unknown Selector");
    if (--found->second != 0)
        return;
    selectors.erase(found);
    for (Selectable* u : underlying)
        selector->remove(u);
}

void StackedSelectableBack::watchUnderlying(Selectable* u, bool watch)
{
    if (!u)
        assertion("StackedSelectableBack underlying pointer is null");
    if (!watch) {
        if (!forget(u))
            return;
        for (const auto& [selector, count] : selectors)
            selector->remove(u);
        return;
    }
    if (!underlying.insert(u).second)
        return;
    u->watchers.push_back(this);
    for (const auto& [selector, count] : selectors)
        selector->add(u, this);
}

// False if it wasn't watched.
bool StackedSelectableBack::forget(Selectable* u)
{
    if (underlying.erase(u) == 0)
        return false;
    u->watchers.erase(std::find(u->watchers.begin(), u->watchers.end(), this));
    return true;
}

}  // namespace io
