// Wait lists, the waits, and what they cost.

#include "Support.h"

#include <csignal>

#include <algorithm>
#include <deque>
#include <memory>
#include <random>

namespace platform {
namespace {

// Over at the next wait.
struct OverSoon : Attempt {
    OverSoon() : Attempt(Endpoint{0, 80}) {}
};

TEST(Waits, LastTheirTimeAndNoSignalEndsThem)
{
    const Listener never;
    WaitList list;
    list.append(acceptReady(never.socket));
    EXPECT_EQ(waitForMultipleObjectsEx(list, 0), WAIT_TIMEOUT);

    static volatile std::sig_atomic_t alarms = 0;
    const auto before = std::signal(SIGALRM, [](int) { alarms = alarms + 1; });
    ualarm(5'000, 5'000);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(waitForMultipleObjectsEx(list, 40), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
    ualarm(0, 0);
    std::signal(SIGALRM, before);
    EXPECT_GT(alarms, 0);
}

TEST(WaitLists, TheLowestSignalledIndexAfterAnyChanges)
{
    // Against a plain vector that is searched from its start.
    using Member = std::pair<Handle, bool>;  // whether it is signalled
    const std::vector<OverSoon> over(12);
    const std::vector<Listener> never(12);
    std::vector<Member> objects;
    for (std::size_t i = 0; i < over.size(); ++i)
        objects.insert(objects.end(),
                       {{over[i].handle, true}, {acceptReady(never[i].socket), false}});
    EXPECT_EQ(sleepEx(0), 0u);  // tells the ends

    WaitList lists[3];
    std::vector<Member> models[3];
    std::mt19937 random(1);  // NOLINT: the same steps in every run
    for (int step = 0; step < 3000; ++step) {
        WaitList& list = lists[step % 3];
        std::vector<Member>& model = models[step % 3];
        if (model.size() < 30 && (model.empty() || random() % 100 < 52)) {
            // An object may stand in a list twice.
            model.push_back(objects[random() % objects.size()]);
            list.append(model.back().first);
        } else {
            const std::size_t index = random() % model.size();
            list.removeSwapLast(index);
            model[index] = model.back();
            model.pop_back();
        }
        const auto first = std::find_if(model.begin(), model.end(),
                                        [](const Member& member) { return member.second; });
        const auto place = static_cast<std::uint32_t>(first - model.begin());
        ASSERT_EQ(waitForMultipleObjectsEx(list, 0), first == model.end() ? WAIT_TIMEOUT : place);
        for (std::size_t i = 0; i < model.size(); ++i) {
            ASSERT_EQ(list[i], model[i].first);
            ASSERT_EQ(list.isSignalled(i), model[i].second);
        }
    }
}

TEST(WaitLists, ObjectAndListEndInAnyOrder)
{
    auto list = std::make_unique<WaitList>();
    WaitList other;
    const OverSoon outlivesTheList;
    auto endsFirst = std::make_unique<OverSoon>();
    for (WaitList* each : {list.get(), &other}) {
        each->append(outlivesTheList.handle);
        each->append(endsFirst->handle);
    }
    endsFirst.reset();
    list.reset();
    const OverSoon inItsPlace;
    EXPECT_EQ(waitForMultipleObjectsEx(other, 0), WAIT_FAILED);
    EXPECT_EQ(getLastError(), ERROR_INVALID_HANDLE);
    other.removeSwapLast(1);
    const Pair pipe;
    const Write write(pipe.out, "x");  // completions come behind signalled handles
    EXPECT_EQ(waitForMultipleObjectsEx(other, 0), 0u);
    EXPECT_EQ(write.end(), End(0, 1));
}

// One byte there and back, many times, and a wait for nothing; gives the system calls.
std::pair<std::uint64_t, std::uint64_t> costOfTalking()
{
    const Pair pipe;
    const SystemCallCounts before = systemCallCounts();
    for (int i = 0; i < 50; ++i) {
        const Read read(pipe.in);
        const Write write(pipe.out, "x");
        while (read.ends.empty() || write.ends.empty())
            EXPECT_EQ(sleepEx(1000), WAIT_IO_COMPLETION);
    }
    EXPECT_EQ(sleepEx(5), 0u);
    const SystemCallCounts after = systemCallCounts();
    return {after.waits - before.waits, after.transfers - before.transfers};
}

TEST(Scale, IdleDescriptorsCostNothing)
{
    const auto alone = costOfTalking();
    const std::size_t count = std::min<std::size_t>(10'000, (raiseDescriptorLimit() - 100) / 2);
    const Listener silent(0);
    std::deque<Read> reads;
    std::deque<Attempt> attempts;
    for (std::size_t i = 0; i < count; ++i) {
        attempts.emplace_back(silent.local);
        EXPECT_EQ(reads.emplace_back(attempts.back().socket, 16).code, ERROR_IO_PENDING);
    }
    sleepEx(20);  // tells of the one for whom there is room
    EXPECT_EQ(costOfTalking(), alone);
    attempts.clear();
    EXPECT_EQ(sleepEx(INFINITE), WAIT_IO_COMPLETION);
    for (const Read& read : reads)
        EXPECT_EQ(read.ends, std::vector<End>{End(ERROR_OPERATION_ABORTED, 0)});
}

}  // namespace
}  // namespace platform
