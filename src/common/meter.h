// Metering: named counters and timings in a tree of groups, which a monitoring client can list and
// read.
//
// Metrics and groups are global objects, built before main. As long as the tree isn't open, and
// this process never opens it, each waits in a chain to be attached; from then on each attaches
// itself to its group, or to `root` if it has none. A group owns nothing that is attached to it:
// who goes, leaves the tree and the chain, in whatever order global objects go.
//
// A metric answers a request by an event. This folder knows no events, so reply() is declared here
// and defined beside the queues.
#pragma once

#include <cstdint>
#include <limits>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace queues {
class event;
}

namespace meter {

class Group;
class Metric;

// A step of a path through the tree.
using PathIterator = std::list<std::string>::const_iterator;

class Object {
public:
    // Leaves the group.
    virtual ~Object();
    // The metric at the end of a path that begins below this object; null if there is none.
    virtual Metric* find(PathIterator pathBegin, PathIterator pathEnd) = 0;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    Group* parent;  // null for a top-level object
    std::string name;

protected:
    Object(Group* group, std::string ownName);
};

class Metric : public Object {
public:
    Metric(Group* group, std::string ownName, std::string itsUnit, std::string description);
    ~Metric() override;
    // This metric, if the path is empty.
    Metric* find(PathIterator pathBegin, PathIterator pathEnd) override;
    virtual std::int32_t metricType() const = 0;
    // Sends the value through the queue of the process, with `dest` and `inresponse` of the
    // request. Throws what the queue throws.
    virtual void reply(const queues::event& request) const = 0;

    std::string unit;
    std::string desc;
    Metric* next_unattached = nullptr;  // in the chain of those that wait
};

class IntegerCounter : public Metric {
public:
    using Metric::Metric;
    std::int32_t metricType() const override { return 2; }
    void reply(const queues::event& request) const override;

    std::uint64_t value = 0;
};

// Sums over the samples so far, in the unit of the metric.
class Timing : public Metric {
public:
    using Metric::Metric;
    void reply(const queues::event& request) const override;

    std::uint64_t n = 0;  // samples; with none, `min` is the largest number
    std::uint64_t min = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t max = 0;
    std::uint64_t sum = 0;
    std::uint64_t sum_squares = 0;
};

// Its unit is always "us".
class MicroSecondTiming : public Timing {
public:
    MicroSecondTiming(Group* group, std::string ownName, std::string description)
        : Timing(group, std::move(ownName), "us", std::move(description))
    {}
    std::int32_t metricType() const override { return 3; }
};

class Group : public Object {
public:
    Group(Group* group, std::string ownName);
    ~Group() override;
    // What the child with the first name of the path finds by the rest; null for an empty path,
    // which is that of a group.
    Metric* find(PathIterator pathBegin, PathIterator pathEnd) override;

    // Takes an object in, without owning it. A second object of one name is an assertion.
    void attach(Metric* metric);
    void attach(Group* group);
    // Forgets an object, which may never have been attached. One of the same name stays.
    void detach(const Object* object) noexcept;

    std::map<std::string, Object*> children;  // by name
    std::vector<Group*> groups;               // of them
    std::vector<std::string> tables;          // names; there are none in this process
    std::vector<Metric*> metrics;             // the other children
    Group* next_unattached = nullptr;         // in the chain of those that wait

private:
    friend Group& root() noexcept;

    // The root: it waits for nothing.
    Group() : Object(nullptr, "") {}
    void addChild(Object* object);
};

// The group of all that have no other. It has no name, and is there before the first global object
// and after the last.
Group& root() noexcept;

// Whether metrics and groups attach themselves when they are built. False in this process.
extern bool tree_open;

// The first of those that wait; null if none does. The latest comes first.
Metric* unattachedMetrics();
Group* unattachedGroups();

}  // namespace meter
