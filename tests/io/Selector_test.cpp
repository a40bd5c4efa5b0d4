// The selectors on a scripted platform: what is asked in which order, how long a wait is, and
// who is handed out.
#include "io/Selector.h"

#include "common/errors.h"
#include "io/Stream.h"
#include "io/Timer.h"
#include "tests/io/Fakes.h"
#include "tests/io/ScriptedPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <stdexcept>

namespace {

using fakes::Back;
using fakes::Foreign;
using fakes::Front;
using fakes::Managed;
using io::Selectable;
using platform::Handle;
using scripted::state;

const bool registered = (io::registerManagedClass(typeid(Managed)), true);

class SelectorTest : public testing::Test {
protected:
    SelectorTest()
    {
        scripted::reset();
        state.wait = [this](const auto&, std::uint32_t timeoutMs) {
            timeouts.push_back(timeoutMs);
            return answer();
        };
    }

    // The next wait's result: what is queued; without that, the oldest operation ends.
    std::uint32_t answer()
    {
        if (!results.empty()) {
            const std::uint32_t result = results.front();
            results.pop_front();
            return result;
        }
        if (state.operations.empty())
            throw std::logic_error("a wait without end");
        scripted::complete(0, 1);
        return platform::WAIT_IO_COMPLETION;
    }

    std::vector<std::uint32_t> timeouts;
    std::deque<std::uint32_t> results;
};

TEST_F(SelectorTest, AsksAForeignSelectableOnceBeforeEachWait)
{
    std::vector<std::string> trace;
    Foreign foreign("f");
    foreign.trace = &trace;
    io::Selector<int> selector;
    state.wait = [&](const auto&, std::uint32_t) {
        trace.push_back("wait");
        foreign.ready = state.waits == 3;
        return platform::WAIT_IO_COMPLETION;
    };
    selector.add(&foreign, 4);
    EXPECT_THAT(trace, testing::ElementsAre("f.isReady"));
    trace.clear();
    EXPECT_EQ(selector.poll(), std::pair(static_cast<Selectable*>(&foreign), 4));
    const std::vector<std::string> pass = {"f.wakeTime", "f.issueOverlapped", "f.isReady"};
    std::vector<std::string> expected;
    for (int i = 0; i < 4; ++i) {
        expected.insert(expected.end(), pass.begin(), pass.end());
        if (i < 3)
            expected.emplace_back("wait");
    }
    // Taken out of os_ready, and out of ready_list.
    for (const char* call : {"f.isReady", "f.wakeTime", "f.isReady"})
        expected.emplace_back(call);
    EXPECT_EQ(trace, expected);
}

TEST_F(SelectorTest, RoundsTheTimeOutUp)
{
    const struct {
        Time left;
        std::uint32_t timeoutMs;
    } cases[] = {
        {{0, 1}, 1},
        {{0, 1000}, 1},
        {{0, 1001}, 2},
        {{0, 999001}, 1000},
        {{1, 500000}, 1500},
        {{0, 0}, 0},
        {{-1, 999999}, 0},
        {{-500, 0}, 0},
        {{100000, 0}, 100000000},
        {{4294967, 294500}, 0xFFFFFFFE},
        {{4294968, 0}, 704},
    };
    for (const auto& one : cases) {
        for (const bool byTimer : {true, false}) {
            scripted::state.now = Time(1000, 0);
            SCOPED_TRACE(one.left.toString());
            io::Timer timer;
            Foreign foreign;
            io::Selector<int> selector;
            timer.when = state.now + one.left;
            foreign.deadline = timer.when;
            foreign.hasDeadline = true;
            selector.add(byTimer ? static_cast<Selectable*>(&timer) : &foreign, 0);
            foreign.ready = true;
            timeouts.clear();
            results = {platform::WAIT_TIMEOUT};
            state.wait = [&](const auto&, std::uint32_t timeoutMs) {
                timeouts.push_back(timeoutMs);
                if (state.now < timer.when.get())
                    state.now = timer.when;
                return answer();
            };
            selector.poll();
            EXPECT_THAT(timeouts, testing::ElementsAre(one.timeoutMs));
        }
    }
}

TEST_F(SelectorTest, HandsADeadlineOutOnlyByATimeOut)
{
    io::Timer never;
    io::Timer timer;
    Managed managed;
    io::Selector<int> selector;
    timer.when = state.now;
    managed.want();
    for (Selectable* s : {static_cast<Selectable*>(&never), static_cast<Selectable*>(&timer),
                          static_cast<Selectable*>(&managed)})
        selector.add(s, 0);
    // The completion comes first, although the timer is due and was marked ready when added.
    EXPECT_EQ(selector.poll().first, &managed);
    EXPECT_THAT(timeouts, testing::ElementsAre(0));
    managed.set(false);

    // A wait that ends early is repeated.
    timer.when = state.now + Time(0, 1500);
    results = {platform::WAIT_TIMEOUT, platform::WAIT_TIMEOUT};
    timeouts.clear();
    state.wait = [&](const auto&, std::uint32_t timeoutMs) {
        timeouts.push_back(timeoutMs);
        state.now += timeouts.size() == 1 ? Time(0, 1400) : Time(0, 1000);
        return answer();
    };
    EXPECT_EQ(selector.poll().first, &timer);
    EXPECT_THAT(timeouts, testing::ElementsAre(2, 1));

    // Without a deadline there is no limit.
    selector.remove(&timer);
    timeouts.clear();
    managed.want();
    EXPECT_EQ(selector.poll().first, &managed);
    EXPECT_THAT(timeouts, testing::ElementsAre(platform::INFINITE));
}

TEST_F(SelectorTest, ABackHearsOfItsTimerNotBeforeTheDeadline)
{
    io::Timer timer;
    Back back;
    back.watch(&timer);
    io::Selector<int> selector;
    selector.add(&back.front, 1);
    timer.when = state.now + Time(0, 500);
    state.wait = [&](const auto&, std::uint32_t) {
        EXPECT_FALSE(back.front.isReady());
        state.now += Time(0, 400);
        return platform::WAIT_TIMEOUT;
    };
    EXPECT_EQ(selector.poll().second, 1);
    EXPECT_EQ(state.waits, 2u);
}

TEST_F(SelectorTest, EqualDeadlinesGoByAddressAndDeadlinesFollowAssignment)
{
    std::array<io::Timer, 3> timers;
    io::Selector<int> first;
    io::Selector<int> second;
    const auto next = [&](io::Selector<int>& selector) {
        results = {platform::WAIT_TIMEOUT};
        return selector.poll().first;
    };
    for (auto* selector : {&first, &second})
        for (int i = 2; i >= 0; --i)
            selector->add(&timers[static_cast<unsigned>(i)], i);
    for (io::Timer& timer : timers)
        timer.when = state.now;
    for (auto* selector : {&first, &second})
        EXPECT_EQ(next(*selector), &timers[0]);
    first.remove(&timers[0]);
    EXPECT_EQ(next(first), &timers[1]);
    EXPECT_EQ(next(second), &timers[0]);

    timers[2].when = Time(1, 0);
    for (auto* selector : {&first, &second})
        EXPECT_EQ(next(*selector), &timers[2]);
    timers[2].when = Time::infinity;
    EXPECT_EQ(next(first), &timers[1]);

    // A foreign deadline stands in the same order as the timers.
    std::array<Foreign, 2> foreign;
    for (Foreign& one : foreign) {
        one.ready = one.hasDeadline = true;
        one.deadline = state.now;
        first.add(&one, 7);
    }
    const std::set<Selectable*> due = {&timers[1], &foreign[0], &foreign[1]};
    EXPECT_EQ(next(first), *due.begin());
    io::Selector<int> third;
    for (Foreign& one : foreign)
        third.add(&one, 7);
    EXPECT_EQ(next(third), &foreign[0]);
    foreign[1].deadline = Time(0, 1);
    EXPECT_EQ(next(first), &foreign[1]);
}

TEST_F(SelectorTest, ADueTimerWaitsForSixteenCompletionsAtMost)
{
    io::Timer timer;
    Managed flood;
    io::Selector<int> selector;
    selector.add(&timer, 0);
    selector.add(&flood, 0);
    timer.when = state.now;
    for (int round = 0; round < 3; ++round) {
        int completions = 0;
        for (;; ++completions) {
            flood.set(false);
            flood.want();
            ASSERT_LE(completions, 16);
            if (selector.poll().first == &timer)
                break;
        }
        EXPECT_EQ(completions, 15);  // the sixteenth runs in the wait that reports the deadline
    }
}

TEST_F(SelectorTest, NonBlockingThrowsWhereItWouldWait)
{
    io::Timer timer;
    Foreign ready;
    io::BareSelector selector;
    const auto expectNotReady = [&] {
        results = {platform::WAIT_TIMEOUT};
        try {
            selector.pollImpl(true);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const io::ENotReady& e) {
            EXPECT_EQ(e.text(), "Selectable <unknown> not ready");
        }
    };
    expectNotReady();
    selector.add(&timer, nullptr);
    expectNotReady();
    timer.when = state.now + Time(5, 0);
    expectNotReady();
    EXPECT_THAT(timeouts, testing::Each(0));
    timer.when = state.now;
    results = {platform::WAIT_TIMEOUT};
    EXPECT_EQ(selector.pollImpl(true), &timer);
    ready.ready = true;
    selector.add(&ready, nullptr);
    EXPECT_EQ(selector.pollImpl(true), &ready);
}

TEST_F(SelectorTest, HandlesNameTheirOwners)
{
    // More than 258 handles: two of their places have the numbers of other results.
    std::vector<std::unique_ptr<Foreign>> owners;
    std::set<std::uint64_t>& signalled = state.signalled;
    io::Selector<int> selector;
    for (int i = 0; i < 300; ++i) {
        owners.push_back(std::make_unique<Foreign>());
        owners.back()->handle = Handle{1000u + static_cast<unsigned>(i)};
        selector.add(owners.back().get(), i);
    }
    state.wait = [&](const std::vector<Handle>& handles, std::uint32_t) -> std::uint32_t {
        for (std::size_t i = 0; i < handles.size(); ++i)
            if (signalled.count(static_cast<std::uint64_t>(handles[i])) != 0)
                return static_cast<std::uint32_t>(i);
        return answer();
    };
    // The last one moves to the place of the one that goes.
    selector.remove(owners[7].get());
    selector.remove(owners[298].get());
    const struct {
        unsigned number;
        unsigned lower;  // also signalled, but not waited for any more
    } cases[] = {{192, 7}, {258, 298}, {299, 7}, {0, 298}, {297, 7}};
    for (const auto& one : cases) {
        signalled = {1000u + one.number, 1000u + one.lower};
        EXPECT_EQ(selector.poll().second, static_cast<int>(one.number));
    }
    // The same numbers as results of their own.
    signalled.clear();
    io::Timer timer;
    timer.when = state.now;
    selector.add(&timer, -1);
    results = {platform::WAIT_IO_COMPLETION, platform::WAIT_TIMEOUT};
    EXPECT_EQ(selector.poll().second, -1);
    selector.remove(&timer);

    // One that keeps waiting is not handed out.
    owners[3]->keepsWaiting = true;
    signalled = {1003};
    state.wait = [&, wait = state.wait](const std::vector<Handle>& handles, std::uint32_t limit) {
        const std::uint32_t result = wait(handles, limit);
        signalled = {1005};
        return result;
    };
    EXPECT_EQ(selector.poll().second, 5);
}

TEST_F(SelectorTest, HandsOutQueuedOnesThenFrontsThenTheRest)
{
    Foreign stream;
    std::array<Foreign, 2> plain;
    std::array<Back, 2> backs;
    io::Selector<int> selector;
    plain[0].ready = plain[1].ready = true;
    selector.add(&plain[1], 1);
    selector.add(&plain[0], 0);
    for (Back& back : backs) {
        selector.add(&back.front, 10);
        back.front.set(true);
    }
    // One ready when it is added is queued at once, before the fronts that became so later.
    Back queued;
    queued.front.set(true);
    selector.add(&queued.front, 20);
    EXPECT_EQ(selector.poll().first, &queued.front);
    queued.front.set(false);
    // A front that stays ready comes again and again, and nothing else gets its turn.
    for (int i = 0; i < 3; ++i)
        for (Back& back : backs)
            EXPECT_EQ(selector.poll().first, &back.front);
    backs[0].front.set(false);
    EXPECT_EQ(selector.poll().first, &backs[1].front);
    backs[1].front.set(false);
    EXPECT_EQ(selector.poll().second, 0);
    EXPECT_EQ(selector.poll().second, 1);
    // Queued, then removed: not handed out.
    backs[0].front.set(true);
    backs[1].front.set(true);
    EXPECT_EQ(selector.poll().first, &backs[0].front);
    selector.remove(&backs[1].front);
    backs[0].front.set(false);
    EXPECT_EQ(selector.poll().second, 0);
    EXPECT_EQ(state.waits, 0u);
}

TEST_F(SelectorTest, ReadinessClimbsAStackOfAnyHeight)
{
    constexpr std::size_t height = 6;
    std::array<Managed, 2> streams;
    std::vector<std::unique_ptr<Back>> storeys;
    for (std::size_t i = 0; i < height; ++i) {
        storeys.push_back(std::make_unique<Back>("storey " + std::to_string(i)));
        storeys[i]->watch(i == 0 ? static_cast<Selectable*>(&streams[0]) : &storeys[i - 1]->front);
    }
    Back& top = *storeys.back();
    io::Selector<int> selector;
    io::Selector<int> other;
    selector.add(&top.front, 1);
    other.add(&top.front, 2);
    for (int round = 0; round < 2; ++round) {
        streams[0].set(false);
        streams[0].want();
        auto& polled = round == 0 ? selector : other;
        EXPECT_EQ(polled.poll(), std::pair(static_cast<Selectable*>(&top.front), round + 1));
        streams[0].set(false);
        for (std::size_t i = 0; i < height; ++i)
            storeys[i]->served(i == 0 ? static_cast<Selectable*>(&streams[0])
                                      : &storeys[i - 1]->front);
    }
    // Two streams beneath the lowest: the second is watched in both selectors, then in none.
    storeys[0]->watch(&streams[1]);
    streams[1].set(true);
    EXPECT_EQ(other.poll().second, 2);
    storeys[0]->unwatch(&streams[1]);
    // The top goes: the storeys beneath leave the selectors with it.
    storeys.pop_back();
    Managed rest;
    rest.set(true);
    streams[0].set(true);
    selector.add(&rest, 3);
    EXPECT_EQ(selector.poll().second, 3);
}

TEST_F(SelectorTest, OnlyReadyFrontsOfTheSelectorClimb)
{
    Managed stream;
    Back lower;
    lower.watch(&stream);
    Front elsewhere(&lower);  // ready, but not registered
    Front idle(&lower);       // registered by another back, and not ready
    Back upper;
    elsewhere.set(true);
    upper.watch(&idle);
    io::Selector<int> selector;
    selector.add(&lower.front, 1);
    selector.add(&upper.front, 2);
    stream.set(true);
    EXPECT_EQ(selector.poll().second, 1);
    EXPECT_FALSE(upper.front.isReady());
}

TEST_F(SelectorTest, WhoDiesRegisteredLeavesAllThatKnowsIt)
{
    io::Selector<int> selector;
    auto shortLived = std::make_unique<io::Selector<int>>();
    auto plain = std::make_unique<Foreign>();
    auto timer = std::make_unique<io::Timer>();
    auto stream = std::make_unique<Managed>();
    auto back = std::make_unique<Back>();
    auto extra = std::make_unique<Front>(back.get());
    timer->when = state.now;
    plain->ready = true;
    stream->set(true);
    back->watch(stream.get());
    for (auto* one : {&selector, shortLived.get()}) {
        one->add(plain.get(), 1);
        one->add(timer.get(), 2);
        one->add(&back->front, 3);
        one->add(extra.get(), 4);
    }
    plain.reset();
    timer.reset();
    extra.reset();
    stream.reset();  // while the back watches it
    Managed another;
    back->watch(&another);
    shortLived.reset();
    another.set(true);
    EXPECT_EQ(selector.poll().second, 3);
    Front orphan(back.get());
    back.reset();
    Foreign last;
    last.ready = true;
    selector.add(&last, 5);
    EXPECT_EQ(selector.poll().second, 5);
    EXPECT_FALSE(orphan.isReady());
    // No deadline is left, either.
    last.ready = false;
    another.set(false);
    another.want();
    selector.add(&another, 6);
    EXPECT_EQ(selector.poll().second, 6);
    EXPECT_THAT(timeouts, testing::ElementsAre(platform::INFINITE));
}

TEST_F(SelectorTest, ExceptionsPassThroughAndLoseNothing)
{
    class Throwing : public Managed {
    public:
        void issueOverlapped() override
        {
            if (fails)
                throw error::EFatal("from issueOverlapped");
        }
        bool fails = true;
    };
    static const bool known = (io::registerManagedClass(typeid(Throwing)), true);
    Throwing throwing;
    io::Selector<int> selector;
    selector.add(&throwing, 1);
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(selector.poll(), error::EFatal);
    throwing.fails = false;
    throwing.ready = known;  // without a notice: it must still be looked at
    EXPECT_EQ(selector.poll().second, 1);

    throwing.set(false);
    results = {platform::WAIT_FAILED};
    platform::setLastError(platform::ERROR_INVALID_HANDLE);
    try {
        selector.poll();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const error::ESystemError& e) {
        EXPECT_THAT(e.text(), testing::StartsWith("WaitForMultipleEvents returned error: "));
    }
    throwing.set(true);
    EXPECT_EQ(selector.poll().second, 1);
}

TEST_F(SelectorTest, WaitReadyAsksTheOsOnlyWhenItMust)
{
    Managed stream;
    Managed other;
    io::Selector<int> selector;
    selector.add(&stream, 0);
    selector.add(&other, 0);
    stream.set(true);
    stream.waitReady();
    EXPECT_EQ(state.waits, 0u);
    stream.set(false);
    other.want();
    stream.want();
    stream.waitReady();
    EXPECT_EQ(state.waits, 1u);  // the other one's operation is not started by it
    EXPECT_EQ(state.started, 1u);
    EXPECT_TRUE(stream.ready);
    io::Timer timer;
    timer.when = state.now + Time(1, 0);
    results = {platform::WAIT_TIMEOUT};
    state.wait = [&](const auto&, std::uint32_t) {
        state.now += Time(1, 0);
        return answer();
    };
    timer.waitReady();
    EXPECT_EQ(state.waits, 2u);
}

TEST_F(SelectorTest, IdleMembersCostNothingPerPass)
{
    const bool shadowed = std::exchange(io::OsSelector::shadowScan, false);
    constexpr std::size_t count = 10000;
    std::vector<Managed> idle(count);
    std::vector<io::Timer> timers(count);
    Managed busy;
    io::Selector<std::size_t> selector;
    for (std::size_t i = 0; i < count; ++i) {
        selector.add(&idle[i], i);
        timers[i].when = state.now + Time(static_cast<std::int32_t>(i) + 60, 0);
        selector.add(&timers[i], count + i);
    }
    selector.add(&busy, 2 * count);
    const auto calls = [&] {
        unsigned sum = 0;
        for (const Managed& one : idle)
            sum += one.readyCalls;
        return sum;
    };
    const auto turn = [&] {
        busy.set(false);
        busy.want();
        EXPECT_EQ(selector.poll().second, 2 * count);
    };
    turn();
    const unsigned before = calls();
    for (int i = 0; i < 50; ++i)
        turn();
    EXPECT_EQ(calls(), before);
    idle[4321].set(true);
    EXPECT_EQ(selector.poll().second, 4321u);
    EXPECT_LE(calls(), before + 5);
    io::OsSelector::shadowScan = shadowed;
}

TEST_F(SelectorTest, SubclassesOfManagedClassesArePolled)
{
    // It is ready without a notice, as whoever derives a class has no reason to know of notices.
    class Derived : public Managed {
    public:
        bool isReady() override { return state.waits == 1; }
    };
    Derived derived;
    io::Selector<int> selector;
    results = {platform::WAIT_IO_COMPLETION};
    selector.add(&derived, 3);
    EXPECT_EQ(selector.poll().second, 3);
}

}  // namespace
