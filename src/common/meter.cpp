#include "common/meter.h"

#include "common/assertion.h"

#include <cstddef>
#include <iterator>
#include <new>

namespace meter {

constinit bool tree_open = false;

namespace {

// Global objects of any source may be built before those of this one, and go after them: these
// need no building and no end.
constinit Metric* firstMetric = nullptr;
constinit Group* firstGroup = nullptr;

Group& groupOf(const Object& object)
{
    return object.parent != nullptr ? *object.parent : root();
}

template <class T>
void place(T* object, T*& first)
{
    if (tree_open) {
        groupOf(*object).attach(object);
    } else {
        object->next_unattached = first;
        first = object;
    }
}

template <class T>
void unlink(const T* object, T*& first)
{
    for (T** link = &first; *link != nullptr; link = &(*link)->next_unattached) {
        if (*link == object) {
            *link = object->next_unattached;
            return;
        }
    }
}

template <class T>
void orphan(const Group* group, T* first)
{
    for (T* waiting = first; waiting != nullptr; waiting = waiting->next_unattached) {
        if (waiting->parent == group)
            waiting->parent = nullptr;
    }
}

}  // namespace

Group& root() noexcept
{
    // Built at the first call, never destroyed, and without memory from the heap, since destructors
    // call it.
    alignas(Group) static std::byte space[sizeof(Group)];
    static Group& group = *new (space) Group;
    return group;
}

Metric* unattachedMetrics()
{
    return firstMetric;
}

Group* unattachedGroups()
{
    return firstGroup;
}

Object::Object(Group* group, std::string ownName) : parent(group), name(std::move(ownName))
{}

// Here and not in the derived classes, so that it holds for a constructor, too, that fails while
// it attaches.
Object::~Object()
{
    groupOf(*this).detach(this);
}

Metric::Metric(Group* group, std::string ownName, std::string itsUnit, std::string description)
    : Object(group, std::move(ownName)), unit(std::move(itsUnit)), desc(std::move(description))
{
    place(this, firstMetric);
}

Metric::~Metric()
{
    unlink(this, firstMetric);
}

Metric* Metric::find(PathIterator pathBegin, PathIterator pathEnd)
{
    return pathBegin == pathEnd ? this : nullptr;
}

Group::Group(Group* group, std::string ownName) : Object(group, std::move(ownName))
{
    place(this, firstGroup);
}

Group::~Group()
{
    for (Group* group : groups)
        group->parent = nullptr;
    for (Metric* metric : metrics)
        metric->parent = nullptr;
    orphan(this, firstGroup);
    orphan(this, firstMetric);
    unlink(this, firstGroup);
}

Metric* Group::find(PathIterator pathBegin, PathIterator pathEnd)
{
    if (pathBegin == pathEnd)
        return nullptr;
    const auto child = children.find(*pathBegin);
    return child == children.end() ? nullptr : child->second->find(std::next(pathBegin), pathEnd);
}

void Group::attach(Metric* metric)
{
    addChild(metric);
    metrics.push_back(metric);
}

void Group::attach(Group* group)
{
    addChild(group);
    groups.push_back(group);
}

void Group::addChild(Object* object)
{
    if (!children.emplace(object->name, object).second)
        assertion("Attempt to add duplicate metric name: " + object->name);
}

void Group::detach(const Object* object) noexcept
{
    std::erase(groups, object);
    std::erase(metrics, object);
    std::erase_if(children, [&](const auto& child) { return child.second == object; });
}

}  // namespace meter
