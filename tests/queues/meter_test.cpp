// Metrics: the tree of groups, those that wait for it, and what they answer.
#include "common/meter.h"

#include "queues/childqueue.h"
#include "tests/queues/frames.h"

#include <memory>
#include <string>

namespace {

using namespace meter;

Metric* find(const std::list<std::string>& path)
{
    return root().find(path.begin(), path.end());
}

// An open tree, closed after the test, which must have left it empty.
struct OpenMeterTree : testing::Test {
    OpenMeterTree() { tree_open = true; }
    ~OpenMeterTree() override
    {
        tree_open = false;
        EXPECT_TRUE(root().children.empty() && root().groups.empty() && root().metrics.empty());
    }
};

TEST(meters, ofTheProcessWait)
{
    EXPECT_TRUE(root().children.empty());
    std::set<std::string> waiting;
    for (const Metric* metric = unattachedMetrics(); metric; metric = metric->next_unattached)
        waiting.insert(metric->parent->name + "/" + metric->name + "|" + metric->unit + "|" +
                       std::to_string(metric->metricType()) + "|" + metric->desc);
    for (const Group* group = unattachedGroups(); group; group = group->next_unattached)
        waiting.insert(group->name + (group->parent == nullptr ? "" : " has a parent"));
    const std::set<std::string> expected = {
        "metering", "queues", "metering/time|us|3|Time spent in metering routines",
        "queues/blockings|us|3|The time spent blocked awaiting reply from another process",
        ("queues/noblockings||2|The number of times a reply from another process was "
         "immediately available")};
    EXPECT_EQ(waiting, expected);
}

TEST(meters, leaveTheChainInAnyOrder)
{
    Metric* const first = unattachedMetrics();
    auto group = std::make_unique<Group>(nullptr, "group");
    Group inner(group.get(), "inner");
    auto a = std::make_unique<IntegerCounter>(&inner, "a", "", "");
    auto b = std::make_unique<IntegerCounter>(group.get(), "b", "", "");
    const IntegerCounter c(group.get(), "c", "", "");
    b.reset();
    EXPECT_TRUE(unattachedMetrics() == &c && c.next_unattached == a.get());
    group.reset();
    EXPECT_TRUE(c.parent == nullptr && inner.parent == nullptr && unattachedGroups() == &inner);
    a.reset();
    EXPECT_EQ(c.next_unattached, first);
}

TEST_F(OpenMeterTree, findsMetricsByTheirPath)
{
    Group group(nullptr, "group");
    Group inner(&group, "inner");
    IntegerCounter counter(&inner, "counter", "bytes", "");
    IntegerCounter top(nullptr, "top", "", "");
    EXPECT_EQ(find({"group", "inner", "counter"}), &counter);
    EXPECT_EQ(find({"top"}), &top);
    const std::list<std::string> nowhere[] = {
        {}, {"none"}, {"group"}, {"group", "inner"}, {"group", "counter"}, {"top", "below"}};
    for (const std::list<std::string>& path : nowhere)
        EXPECT_EQ(find(path), nullptr) << testing::PrintToString(path);
    EXPECT_EQ(root().groups, std::vector<Group*>{&group});
    EXPECT_DEATH(IntegerCounter(&inner, "counter", "", ""), "duplicate metric name: counter\n");
    EXPECT_DEATH(Group(nullptr, "top"), ": Attempt to add duplicate metric name: top\n");
}

TEST_F(OpenMeterTree, forgetsWhoGoes)
{
    auto group = std::make_unique<Group>(nullptr, "group");
    const IntegerCounter counter(group.get(), "counter", "", "");
    tree_open = false;
    std::make_unique<IntegerCounter>(group.get(), "counter", "", "").reset();
    EXPECT_EQ(find({"group", "counter"}), &counter) << "its namesake only waited";
    group.reset();
    EXPECT_EQ(counter.parent, nullptr);
}

TEST(meters, answerThroughTheQueue)
{
    memory::Input input;
    memory::Output output;
    protocol::ioprim link(&input, &output);
    queues::childqueue queue(&link);
    parentQueue = &queue;
    IntegerCounter counter(nullptr, "counter", "", "");
    counter.value = 0x0102;
    MicroSecondTiming timing(nullptr, "timing", "");
    EXPECT_EQ(timing.min, UINT64_MAX) << "no sample yet";
    timing.n = 1;
    timing.min = 2;
    timing.max = 3;
    timing.sum = 4;
    timing.sum_squares = 5;
    const queues::exevent request(queues::queue_t::snmp, 0x77, "");
    timing.reply(request);
    counter.reply(request);
    parentQueue = nullptr;
    const std::string header = "07 00 00 00 77 00 00 00 00 00 00 00";
    const std::string five =
        "01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 03 00 00 00 00 00 00 00"
        "04 00 00 00 00 00 00 00 05 00 00 00 00 00 00 00";
    EXPECT_EQ(output.sent, frames::unhex("13 00 00 00" + header + five + "11 00 00 00" + header +
                                         "02 01 00 00 00 00 00 00"));
    EXPECT_DEATH(counter.reply(request), "^Assertion failed: A metric replied without a queue\n");
}

}  // namespace
