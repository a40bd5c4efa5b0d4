// The selector against a slow one: random sequences of all that can happen to members, on the
// selector and on a model that scans all members in each pass. Both must hand out the same
// members, and start the same operations in the same order.
#include "io/Selector.h"

#include "io/Stream.h"
#include "io/Timer.h"
#include "tests/io/Fakes.h"
#include "tests/io/ScriptedPlatform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <set>

namespace {

using fakes::Back;
using fakes::Foreign;
using fakes::Managed;
using io::Selectable;
using scripted::state;

enum class Kind { foreign, managed, timer, front };

// The model knows members by their rank in the order of addresses.
struct Member {
    Kind kind = Kind::foreign;
    bool ready = false;
    bool wanted = false;
    bool underWay = false;
    bool hasHandle = false;
    bool hasDeadline = false;
    Time deadline = Time::infinity;
    int back = -1;  // of a front
};

struct ModelBack {
    int front = -1;
    std::set<int> underlying;
    int count = 0;  // 1 if the front stands in the selector
};

class Model {
public:
    std::vector<Member> members;
    std::vector<ModelBack> backs;
    std::set<int> signalled;
    std::list<int> underWay;
    std::vector<std::string> started;
    std::map<int, int> avail;  // to the back, or -1

    void add(int s, int back)
    {
        avail[s] = back;
        if (members[s].kind != Kind::front) {
            if (members[s].hasHandle)
                handles.push_back(s);
            if (ready(s))
                osReady.insert(s);
            return;
        }
        if (ready(s))
            readyList.push_back(s);
        ModelBack& own = backs[members[s].back];
        if (own.count++ == 0)
            for (int u : own.underlying)
                add(u, members[s].back);
    }

    void remove(int s)
    {
        avail.erase(s);
        readyList.remove(s);
        if (members[s].kind == Kind::front) {
            ModelBack& own = backs[members[s].back];
            if (--own.count == 0)
                for (int u : own.underlying)
                    remove(u);
            return;
        }
        osReady.erase(s);
        const auto place = std::find(handles.begin(), handles.end(), s);
        if (place != handles.end()) {
            *place = handles.back();
            handles.pop_back();
        }
    }

    void watch(int back, int u, bool watch)
    {
        ModelBack& own = backs[back];
        const bool changes = watch ? own.underlying.insert(u).second : own.underlying.erase(u) != 0;
        if (!changes || own.count == 0)
            return;
        if (watch)
            add(u, back);
        else
            remove(u);
    }

    // -1 where it would wait.
    int poll()
    {
        for (;;) {
            while (!readyList.empty()) {
                const int s = readyList.front();
                readyList.pop_front();
                const Member& member = members[s];
                if (avail.at(s) < 0 && (ready(s) || member.hasHandle ||
                                        (member.hasDeadline && member.deadline <= state.now)))
                    return s;
            }
            std::vector<int> active;
            for (const auto& [s, back] : avail)
                if (members[s].kind == Kind::front && ready(s))
                    active.push_back(s);
            for (int s : active)
                processReady(s);
            if (!readyList.empty())
                continue;
            const int s = wait();
            if (s < 0)
                return -1;
            processReady(s);
        }
    }

private:
    bool ready(int s) const
    {
        const Member& member = members[s];
        return member.kind == Kind::timer ? member.deadline <= state.now : member.ready;
    }

    void processReady(int s)
    {
        const int back = avail.at(s);
        if (back < 0) {
            readyList.push_back(s);
            return;
        }
        watch(back, s, false);
        const int front = backs[back].front;
        members[front].ready = true;
        if (avail.count(front) != 0)
            processReady(front);
    }

    int wait()
    {
        for (;;) {
            while (!osReady.empty()) {
                const int s = *osReady.begin();
                osReady.erase(osReady.begin());
                if ((ready(s) || members[s].hasHandle) && !members[s].hasDeadline)
                    return s;
            }
            Time best = Time::infinity;
            int owner = -1;
            for (const auto& [s, back] : avail) {
                Member& member = members[s];
                if (member.kind == Kind::front)
                    continue;
                if (member.hasDeadline && member.deadline < best) {
                    best = member.deadline;
                    owner = s;
                }
                if (member.wanted && !member.underWay) {
                    member.wanted = false;
                    member.underWay = true;
                    underWay.push_back(s);
                    started.push_back("read " + std::to_string(s) + " 1");
                }
                if (!member.hasDeadline && ready(s))
                    osReady.insert(s);
            }
            if (!osReady.empty())
                continue;
            const bool due = best <= state.now;
            const auto first = std::find_if(handles.begin(), handles.end(),
                                            [&](int s) { return signalled.count(s) != 0; });
            if (first != handles.end())
                return *first;
            if (!underWay.empty()) {
                Member& member = members[underWay.front()];
                underWay.pop_front();
                member.underWay = false;
                member.ready = true;
                completions = due ? completions + 1 : 0;
                if (completions < 16)
                    continue;
            }
            completions = 0;
            if (!due)
                return -1;
            if (ready(owner))
                return owner;
        }
    }

    std::set<int> osReady;
    std::list<int> readyList;
    std::vector<int> handles;
    int completions = 0;
};

const bool registered = (io::registerManagedClass(typeid(Managed)), true);

class Twins {
public:
    explicit Twins(unsigned seed) : random(seed)
    {
        scripted::reset();
        for (int i = 0; i < 6; ++i) {
            foreign.push_back(std::make_unique<Foreign>());
            managed.push_back(std::make_unique<Managed>());
            timers.push_back(std::make_unique<io::Timer>());
            order.insert(order.end(),
                         {foreign.back().get(), managed.back().get(), timers.back().get()});
        }
        for (int i = 0; i < 4; ++i) {
            backs.push_back(std::make_unique<Back>());
            order.push_back(&backs.back()->front);
        }
        std::sort(order.begin(), order.end());
        model.members.resize(order.size());
        model.backs.resize(backs.size());
        for (unsigned i = 0; i < 6; ++i) {
            managed[i]->number = static_cast<unsigned>(rank(managed[i].get()));
            model.members[rank(managed[i].get())].kind = Kind::managed;
            Member& timer = model.members[rank(timers[i].get())];
            timer.kind = Kind::timer;
            timer.hasDeadline = true;
        }
        for (unsigned i = 0; i < backs.size(); ++i) {
            const int front = rank(&backs[i]->front);
            model.members[front].kind = Kind::front;
            model.members[front].back = static_cast<int>(i);
            model.backs[i].front = front;
        }
        for (unsigned i : {0u, 1u}) {  // two handles
            foreign[i]->handle =
                platform::Handle{500u + static_cast<unsigned>(rank(foreign[i].get()))};
            model.members[rank(foreign[i].get())].hasHandle = true;
        }
        // Two storeys on the first stream, one on the second, and one on a timer.
        watch(0, managed[0].get(), true);
        watch(1, &backs[0]->front, true);
        watch(2, managed[1].get(), true);
        watch(3, timers[0].get(), true);
        for (Selectable* s :
             {static_cast<Selectable*>(managed[0].get()),
              static_cast<Selectable*>(managed[1].get()), static_cast<Selectable*>(timers[0].get()),
              static_cast<Selectable*>(&backs[0]->front)})
            beneath.insert(s);

        state.wait = [this](const std::vector<platform::Handle>& handles, std::uint32_t) {
            for (std::size_t i = 0; i < handles.size(); ++i)
                if (model.signalled.count(static_cast<int>(handles[i]) - 500) != 0)
                    return static_cast<std::uint32_t>(i);
            if (state.operations.empty())
                return static_cast<std::uint32_t>(platform::WAIT_TIMEOUT);
            scripted::complete(0, 1);
            return static_cast<std::uint32_t>(platform::WAIT_IO_COMPLETION);
        };
    }

    void step()
    {
        switch (below(11)) {
        case 0:
        case 1:
            toggleMembership(order[below(order.size())]);
            break;
        case 2:
            setReady(*foreign[below(5)], below(2) == 0);
            break;
        case 3:
            setReady(*managed[below(managed.size())], below(2) == 0);
            break;
        case 4:
        case 5: {
            Managed& one = *managed[below(managed.size())];
            one.want();
            model.members[rank(&one)].wanted = true;
            break;
        }
        case 6: {
            io::Timer& timer = *timers[below(timers.size())];
            timer.when = below(4) == 0 ? Time::infinity
                                       : state.now + Time(static_cast<std::int32_t>(below(3)), 0);
            model.members[rank(&timer)].deadline = timer.when;
            break;
        }
        case 7: {
            // A foreign one with a deadline, and ready then, as whoever has a deadline must be.
            Foreign& one = *foreign[5];
            one.hasDeadline = below(2) == 0;
            setReady(one, one.hasDeadline || below(2) == 0);
            one.deadline = state.now;
            Member& member = model.members[rank(&one)];
            member.hasDeadline = one.hasDeadline;
            member.deadline = one.deadline;
            break;
        }
        case 8:
            state.now += Time(static_cast<std::int32_t>(below(2)), 0);
            break;
        case 9: {
            const int s = rank(foreign[below(2)].get());
            if (model.signalled.erase(s) == 0)
                model.signalled.insert(s);
            break;
        }
        default:
            serve(below(backs.size()));
        }
        poll();
    }

private:
    std::size_t below(std::size_t limit) { return random() % limit; }

    int rank(const Selectable* s) const
    {
        return static_cast<int>(std::find(order.begin(), order.end(), s) - order.begin());
    }

    void watch(unsigned back, Selectable* u, bool on)
    {
        if (on)
            backs[back]->watch(u);
        else
            backs[back]->unwatch(u);
        model.watch(static_cast<int>(back), rank(u), on);
    }

    void toggleMembership(Selectable* s)
    {
        if (beneath.count(s) != 0)
            return;
        if (model.avail.count(rank(s)) != 0) {
            selector.remove(s);
            model.remove(rank(s));
        } else {
            selector.add(s, rank(s));
            model.add(rank(s), -1);
        }
    }

    template <class Fake>
    void setReady(Fake& fake, bool ready)
    {
        if constexpr (std::is_same_v<Fake, Managed>)
            fake.set(ready);
        else
            fake.ready = ready;
        model.members[rank(&fake)].ready = ready;
    }

    void serve(unsigned back)
    {
        Selectable* const under[] = {managed[0].get(), &backs[0]->front, managed[1].get(),
                                     timers[0].get()};
        backs[back]->front.set(false);
        model.members[model.backs[back].front].ready = false;
        watch(back, under[back], true);
    }

    void poll()
    {
        // What is ready stays so in the model and here: both look at the same state.
        int handedOut = -1;
        try {
            handedOut = rank(selector.pollImpl(true));
        } catch (const io::ENotReady&) {
        }
        const int expected = model.poll();
        ASSERT_EQ(handedOut, expected);
        ASSERT_EQ(state.calls, model.started);
        state.calls.clear();
        model.started.clear();
    }

    std::mt19937 random;
    std::vector<std::unique_ptr<Foreign>> foreign;
    std::vector<std::unique_ptr<Managed>> managed;
    std::vector<std::unique_ptr<io::Timer>> timers;
    std::vector<std::unique_ptr<Back>> backs;
    std::vector<Selectable*> order;
    std::set<Selectable*> beneath;  // watched by backs, never added by themselves
    Model model;
    io::Selector<int> selector;
};

TEST(SelectorModel, HandsOutTheSameAsAFullScan)
{
    for (unsigned seed = 1; seed <= 60; ++seed) {
        Twins twins(seed);
        for (int step = 0; step < 1000; ++step) {
            twins.step();
            ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed << ", step " << step;
        }
    }
}

}  // namespace
