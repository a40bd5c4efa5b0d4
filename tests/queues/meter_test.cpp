// Metrics: the tree of groups, those that wait for it, and what they answer.
#include "common/meter.h"

#include "queues/childqueue.h"
#include "tests/queues/frames.h"

#include <memory>
#include <string>

namespace {

using namespace frames;
using namespace meter;

// An open tree, closed and emptied by the end of the test.
class OpenTree : public testing::Test {
protected:
    OpenTree() { tree_open = true; }
    ~OpenTree() override { tree_open = false; }

    static Metric* find(const std::list<std::string>& path)
    {
        return root().find(path.begin(), path.end());
    }
};

// Those of the process wait, the latest first, and its tree stays empty.
TEST(meters, ofTheProcessWait)
{
    EXPECT_TRUE(root().children.empty() && root().groups.empty() && root().metrics.empty());
    std::multiset<std::string> waiting;
    for (const Metric* metric = unattachedMetrics(); metric; metric = metric->next_unattached)
        waiting.insert(metric->parent->name + "/" + metric->name + "|" + metric->unit + "|" +
                       std::to_string(metric->metricType()) + "|" + metric->desc);
    for (const Group* group = unattachedGroups(); group; group = group->next_unattached)
        waiting.insert(group->name + (group->parent == nullptr ? "" : " has a parent"));
    EXPECT_EQ(
        waiting,
        (std::multiset<std::string>{
            "metering", "queues", "metering/time|us|3|Time spent in metering routines",
            "queues/blockings|us|3|The time spent blocked awaiting reply from another process",
            "queues/noblockings||2|The number of times a reply from another process was "
            "immediately available"}));
}

TEST(meters, leaveTheChainInAnyOrder)
{
    Metric* const firstMetric = unattachedMetrics();
    auto group = std::make_unique<Group>(nullptr, "group");
    auto inner = std::make_unique<Group>(group.get(), "inner");
    auto a = std::make_unique<IntegerCounter>(inner.get(), "a", "", "");
    auto b = std::make_unique<IntegerCounter>(group.get(), "b", "", "");
    auto c = std::make_unique<IntegerCounter>(group.get(), "c", "", "");
    EXPECT_EQ(unattachedMetrics(), c.get());
    b.reset();
    EXPECT_EQ(c->next_unattached, a.get());
    group.reset();
    EXPECT_EQ(c->parent, nullptr) << "its group is gone";
    EXPECT_EQ(inner->parent, nullptr);
    c.reset();
    EXPECT_EQ(unattachedMetrics(), a.get());
    inner.reset();
    a.reset();
    EXPECT_EQ(unattachedMetrics(), firstMetric);
}

TEST_F(OpenTree, findsMetricsByTheirPath)
{
    Group group(nullptr, "group");
    Group inner(&group, "inner");
    IntegerCounter counter(&inner, "counter", "bytes", "");
    IntegerCounter top(nullptr, "top", "", "");
    EXPECT_EQ(find({"group", "inner", "counter"}), &counter);
    EXPECT_EQ(find({"top"}), &top);
    for (const std::list<std::string>& path : {std::list<std::string>{},
                                               {"group"},
                                               {"group", "inner"},
                                               {"group", "counter"},
                                               {"none"},
                                               {"group", "none"},
                                               {"group", "inner", "counter", "below"}})
        EXPECT_EQ(find(path), nullptr) << path.size();
    EXPECT_EQ(root().groups, std::vector<Group*>{&group});
    EXPECT_DEATH(IntegerCounter(&inner, "counter", "", ""),
                 "^Assertion failed: Attempt to add duplicate metric name: counter\n");
    EXPECT_DEATH(Group(nullptr, "top"), "duplicate metric name: top\n");
}

TEST_F(OpenTree, forgetsWhoGoes)
{
    auto group = std::make_unique<Group>(nullptr, "group");
    auto counter = std::make_unique<IntegerCounter>(group.get(), "counter", "", "");
    tree_open = false;
    // Has waited since the tree was closed: the attached one of the same name stays.
    std::make_unique<IntegerCounter>(group.get(), "counter", "", "").reset();
    EXPECT_EQ(find({"group", "counter"}), counter.get());
    group.reset();
    EXPECT_EQ(counter->parent, nullptr);
    EXPECT_TRUE(root().children.empty() && root().groups.empty());
}

TEST(meters, answerThroughTheQueue)
{
    memory::Input input;
    memory::Output output;
    protocol::ioprim link(&input, &output);
    queues::childqueue queue(&link);
    parentQueue = &queue;
    MicroSecondTiming timing(nullptr, "timing", "");
    IntegerCounter counter(nullptr, "counter", "", "");
    counter.value = 0x0102;
    const queues::exevent request(queues::queue_t::snmp, 0x77, "");
    timing.reply(request);
    counter.reply(request);
    parentQueue = nullptr;
    const std::string header = "07 00 00 00 77 00 00 00 00 00 00 00";
    EXPECT_EQ(output.sent, unhex("13 00 00 00" + header + "00 00 00 00 00 00 00 00" +
                                 "FF FF FF FF FF FF FF FF") +
                               std::string(24, '\0') + unhex("11 00 00 00" + header) +
                               unhex("02 01 00 00 00 00 00 00"));
    EXPECT_DEATH(counter.reply(request), "^Assertion failed: A metric replied without a queue\n");
}

}  // namespace
