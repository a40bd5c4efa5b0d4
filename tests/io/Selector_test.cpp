// Selectors and pipe streams on a scripted platform: what is asked, how long a wait is, who is
// handed out, and writes that end in parts.
#include "io/Pipe.h"
#include "io/Timer.h"
#include "tests/io/Fakes.h"
#include "tests/io/ScriptedPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <utility>

namespace {

using fakes::Back;
using fakes::Foreign;
using fakes::put;
using fakes::take;
using io::Selectable;
using platform::Handle;
using scripted::state;

// The random test: all that can happen to members, on the selector and on a model that scans all
// members in each pass. Both must hand out the same members, and start the same operations in the
// same order.

class FullScan {
public:
    struct Storey {
        Selectable* below = nullptr;
        bool watches = false;
    };
    std::map<Selectable*, Selectable*> avail;  // to the front above, null for a user's
    std::map<Selectable*, Storey> fronts;
    std::set<Selectable*> ready;  // read at the start of a poll
    std::deque<void*> reads;      // the streams whose reads are under way
    int arrivals = 0;

    void add(Selectable* s, Selectable* above)
    {
        avail[s] = above;
        if (s->isReady() && fronts.contains(s))
            readyList.push_back(s);
        else if (s->isReady())
            osReady.insert(s);
        if (fronts.contains(s) && fronts[s].watches)
            add(fronts[s].below, s);
    }

    void remove(Selectable* s)
    {
        avail.erase(s);
        readyList.remove(s);
        osReady.erase(s);
        if (fronts.contains(s) && fronts[s].watches)
            remove(fronts[s].below);
    }

    void watch(Selectable* front, bool on)
    {
        Storey& storey = fronts[front];
        if (std::exchange(storey.watches, on) != on && avail.contains(front))
            on ? add(storey.below, front) : remove(storey.below);
    }

    // Null where it would wait.
    Selectable* poll()
    {
        for (;;) {
            while (!readyList.empty()) {
                Selectable* const s = readyList.front();
                readyList.pop_front();
                if (!avail.at(s) && ready.contains(s))
                    return s;
            }
            const std::set<Selectable*> active = ready;
            for (const auto& [front, storey] : fronts)
                if (avail.contains(front) && active.contains(front))
                    processReady(front);
            if (!readyList.empty())
                continue;
            Selectable* const s = wait();
            if (!s)
                return nullptr;
            processReady(s);
        }
    }

private:
    void processReady(Selectable* s)
    {
        Selectable* const front = avail.at(s);
        if (!front) {
            readyList.push_back(s);
            return;
        }
        watch(front, false);
        ready.insert(front);
        if (avail.contains(front))
            processReady(front);
    }

    Selectable* wait()
    {
        for (;;) {
            while (!osReady.empty()) {
                Selectable* const s = *osReady.begin();
                osReady.erase(s);
                Time time;
                if (ready.contains(s) && !s->wakeTime(&time))
                    return s;
            }
            Time best = Time::infinity;
            Selectable* owner = nullptr;
            for (const auto& [s, above] : avail) {
                Time time;
                const bool timed = s->wakeTime(&time);
                if (timed && time < best) {
                    best = time;
                    owner = s;
                }
                if (!timed && ready.contains(s) && !fronts.contains(s))
                    osReady.insert(s);
                void* const stream = dynamic_cast<io::PipeIStream*>(s);
                if (stream && !ready.contains(s) && std::ranges::count(reads, stream) == 0)
                    reads.push_back(stream);
            }
            if (!osReady.empty())
                continue;
            const bool due = best <= state.now;
            if (!reads.empty() && arrivals-- > 0) {
                ready.insert(static_cast<io::PipeIStream*>(reads.front()));
                reads.pop_front();
                completions = due ? completions + 1 : 0;
                if (completions < 16)
                    continue;
            }
            completions = 0;
            if (!due || ready.contains(owner))
                return due ? owner : nullptr;
        }
    }

    std::set<Selectable*> osReady;
    std::list<Selectable*> readyList;
    int completions = 0;
};

class Twins {
public:
    explicit Twins(unsigned seed) : random(seed)
    {
        state = {};
        for (Group& group : groups) {
            all.insert(all.end(), {&group.foreign, &group.stream, &group.timer, &group.back.front});
            model.fronts[&group.back.front] = {};
        }
        for (std::size_t i = 0; i < beneath.size(); ++i)
            serve(i);
    }

    void step()
    {
        Group& group = groups[below(groups.size())];
        if (chance(3))
            toggleMembership(all[below(all.size())]);
        if (chance(6)) {
            group.foreign.ready = chance(2);
            group.foreign.deadline.reset();
            if (group.foreign.ready && chance(3))
                group.foreign.deadline = state.now;  // whoever has one is ready when it is due
        }
        if (chance(3) && group.stream.isReady())
            group.stream.readCommit(1);
        if (chance(4))
            state.arrivals = static_cast<int>(below(4));
        if (chance(6))
            group.timer.when = chance(4) ? Time::infinity : state.now + seconds(3);
        if (chance(8))
            state.now += seconds(2);
        if (chance(6))
            groups[4 + below(2)].back.front.set(chance(2));
        if (chance(4))
            serve(below(beneath.size()));
        poll();
    }

private:
    struct Group {
        Foreign foreign;
        io::PipeIStream stream{"s", Handle{5}};
        io::Timer timer;
        Back back;
    };

    std::size_t below(std::size_t limit) { return random() % limit; }
    bool chance(std::size_t of) { return below(of) == 0; }
    Time seconds(std::size_t limit) { return {static_cast<std::int32_t>(below(limit)), 0}; }

    void toggleMembership(Selectable* s)
    {
        if (std::ranges::count(beneath, s) != 0)
            return;
        if (model.avail.contains(s)) {
            selector.remove(s);
            model.remove(s);
        } else {
            selector.add(s, 0);
            model.add(s, nullptr);
        }
    }

    // What made the front ready has been taken.
    void serve(std::size_t number)
    {
        Back& back = groups[number].back;
        back.front.set(false);
        back.watchUnderlying(beneath[number], true);
        model.fronts[&back.front].below = beneath[number];
        model.watch(&back.front, true);
    }

    void poll()
    {
        model.ready.clear();
        for (Selectable* s : all)
            if (s->isReady())
                model.ready.insert(s);
        model.arrivals = state.arrivals;
        Selectable* const expected = model.poll();
        Selectable* handedOut = nullptr;
        const std::string text = fakes::thrown([&] { handedOut = selector.pollImpl(true); });
        EXPECT_EQ(handedOut, expected);
        EXPECT_EQ(text, expected ? "" : "Selectable <unknown> not ready");
        EXPECT_TRUE(std::ranges::equal(state.operations, model.reads, {},
                                       [](const auto& o) { return o.overlapped->event; }));
    }

    std::mt19937 random;
    std::array<Group, 6> groups;
    std::vector<Selectable*> all;
    // What the first backs watch, never added by itself: two storeys on the first stream, one on
    // the second and one on a timer.
    std::array<Selectable*, 4> beneath{&groups[0].stream, &groups[0].back.front, &groups[1].stream,
                                       &groups[0].timer};
    FullScan model;
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

class SelectorTest : public testing::Test {
protected:
    SelectorTest() { state = {}; }

    io::Selector<int> selector;
    io::Timer timer;
    io::PipeIStream stream{"s", Handle{5}};
};

TEST_F(SelectorTest, AsksAForeignSelectableOnceBeforeEachWait)
{
    Foreign foreign;
    selector.add(&foreign, 4);
    selector.add(&timer, 5);
    timer.when = state.now + Time(0, 1001);
    stream.issueOverlapped();  // outside the selector: its end only ends a wait
    state.arrivals = 1;
    EXPECT_EQ(selector.poll().second, 5);
    EXPECT_THAT(state.timeouts, testing::ElementsAre(2, 2));
    EXPECT_EQ(foreign.calls, "r"
                             "wir"
                             "wir");
    foreign.ready = true;
    foreign.calls.clear();
    EXPECT_EQ(selector.poll().second, 4);
    EXPECT_EQ(foreign.calls, "wir"
                             "rw"
                             "r");  // then out of both lists of ready ones
    EXPECT_EQ(state.timeouts.size(), 2u);
}

TEST_F(SelectorTest, ADueTimerWaitsForSixteenCompletionsAtMost)
{
    selector.add(&timer, 0);
    selector.add(&stream, 1);
    timer.when = state.now;
    state.arrivals = 1000;
    for (int round = 0; round < 3; ++round) {
        int completions = 0;
        for (; completions < 20 && selector.poll().second == 1; ++completions)
            take(stream);
        EXPECT_EQ(completions, 15);  // the sixteenth runs in the wait that reports the deadline
        take(stream);
    }
}

TEST_F(SelectorTest, HandlesNameTheirOwners)
{
    // More than 258 handles: two of their places have the numbers of other results.
    std::array<Foreign, 300> owners;
    for (unsigned i = 0; i < owners.size(); ++i) {
        owners[i].handle = Handle{1000 + i};
        selector.add(&owners[i], static_cast<int>(i));
    }
    // The last one moves to the place of the one that goes.
    selector.remove(&owners[7]);
    selector.remove(&owners[298]);
    for (const unsigned number : {192u, 258u, 299u, 0u, 297u}) {
        state.signalled = {Handle{1000 + number}, Handle{1007}, Handle{1298}};
        EXPECT_EQ(selector.poll().second, static_cast<int>(number));
    }
    // The same numbers as results of their own: 192, then 258.
    state.signalled.clear();
    stream.issueOverlapped();
    state.arrivals = 1;
    selector.add(&timer, -1);
    timer.when = state.now + Time(1, 0);
    EXPECT_EQ(selector.poll().second, -1);
    EXPECT_TRUE(stream.isReady());
}

TEST_F(SelectorTest, StacksServeSeveralSelectorsAndAllDieInAnyOrder)
{
    Back lower;
    auto upper = std::make_unique<Back>();
    auto extra = std::make_unique<fakes::Front>(upper.get());
    auto due = std::make_unique<io::Timer>();
    auto other = std::make_unique<io::Selector<int>>();
    due->when = state.now;
    upper->watchUnderlying(&lower.front, true);
    for (auto* one : {&selector, other.get()}) {
        one->add(&upper->front, 1);
        one->add(extra.get(), 2);
        one->add(due.get(), 4);
    }
    due.reset();
    extra.reset();
    for (auto* one : {&selector, other.get()}) {
        auto source = std::make_unique<io::PipeIStream>("s", Handle{6});
        lower.watchUnderlying(source.get(), true);
        lower.front.set(false);
        upper->front.set(false);
        upper->watchUnderlying(&lower.front, true);
        state.arrivals = 1;
        EXPECT_EQ(one->poll().second, 1);
        lower.watchUnderlying(source.get(), true);  // which dies while it is watched
    }
    other.reset();
    lower.watchUnderlying(&stream, true);
    upper->watchUnderlying(&lower.front, true);
    upper.reset();
    selector.add(&stream, 5);  // which has left with all that stood upon it
    state.arrivals = 1;
    EXPECT_EQ(selector.poll().second, 5);
    EXPECT_EQ(state.timeouts.back(), platform::INFINITE);  // no deadline is left, either
}

class Idle : public Foreign {};

TEST_F(SelectorTest, IdleMembersCostNoCalls)
{
    io::registerManagedClass(typeid(Idle));
    const bool shadowed = std::exchange(io::OsSelector::shadowScan, false);
    Idle idle;
    Foreign busy;
    selector.add(&busy, 1);
    selector.add(&idle, 2);
    busy.ready = true;
    selector.poll();
    EXPECT_THAT(std::exchange(idle.calls, ""), testing::EndsWith("wir"));
    for (int turn = 0; turn < 50; ++turn)
        EXPECT_EQ(selector.poll().second, 1);
    EXPECT_EQ(idle.calls, "");
    io::OsSelector::shadowScan = shadowed;
}

TEST_F(SelectorTest, WritesEndInParts)
{
    io::PipeOStream out("out", Handle{8});
    put(out, "abc");
    EXPECT_TRUE(state.operations.empty());  // nothing leaves during a commit
    EXPECT_FALSE(out.flush());
    put(out, "de");  // what comes meanwhile joins the batch
    state.arrivals = 1;
    EXPECT_FALSE(out.flush());
    EXPECT_FALSE(out.flush());
    EXPECT_EQ(std::string(state.operations.at(0).bytes, state.operations.at(0).count), "bcde");
    state.arrivals = 4;
    for (int left = 3; left >= 0; --left)
        EXPECT_EQ(out.flush(), left == 0);
    EXPECT_EQ(put(out, std::string(5000, 'x')), 4096u);
}

}  // namespace
