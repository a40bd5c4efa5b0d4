// Runs with workers that misbehave in ways that the command line has no patience for.

#include "parent/Run.h"

#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace {

using namespace parent;

// Keeps what it is told.
class KeptReport final : public Report {
public:
    using Report::Report;
    void begin(const std::vector<Check>&, bool) override {}
    void add(const Outcome& outcome) override { outcomes.push_back(outcome); }
    void end(const Summary&) override {}
    std::vector<Outcome> outcomes;
};

class Runs : public testing::Test {
protected:
    // A worker that is this shell script.
    std::string script(const std::string& text)
    {
        std::string path = directory.path("worker");
        std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
        chmod(path.c_str(), 0755);
        return path;
    }

    // One check with a time limit of a tenth of a second.
    Summary run(RunSettings settings)
    {
        checks.resize(1);
        checks[0].target = parseTarget("tcp://127.0.0.1:9");
        checks[0].alertIfAbove = -9900;
        resolve(&checks);
        parent::Run one(selector, checks, std::move(settings), report, console);
        Summary summary = one.run();
        EXPECT_FALSE(one.workersEndedWell());
        return summary;
    }

    support::TemporaryDirectory directory;
    MainSelector selector;
    std::vector<Check> checks;
    std::ostringstream out;
    std::ostringstream err;
    Console console{err, 0};
    KeptReport report{out, console};
};

TEST_F(Runs, StopAWorkerThatDoesNotAnswerAndDoNotAskAgain)
{
    RunSettings settings;
    settings.worker = script("exec sleep 1000");
    settings.rounds = 2;
    settings.interval = Time();
    settings.answerMargin = Time(1, 0);
    const Summary summary = run(settings);
    ASSERT_EQ(report.outcomes.size(), 2U);
    for (const Outcome& outcome : report.outcomes) {
        EXPECT_EQ(outcome.kind, Outcome::Kind::lost);
        EXPECT_EQ(outcome.attempt, 1U);
        EXPECT_EQ(outcome.reason, "the worker was stopped: it gave no result when all time limits "
                                  "had been over for 1 s");
    }
    EXPECT_EQ(report.outcomes[1].round, 2U);
    EXPECT_EQ(summary.trouble, "");
}

TEST_F(Runs, TakeAWorkerForDeadThatClosesItsOutput)
{
    RunSettings settings;
    settings.worker = script("exec >&-\nexec sleep 1000");
    run(settings);
    ASSERT_EQ(report.outcomes.size(), 1U);
    EXPECT_EQ(report.outcomes[0].attempt, 2U);
    EXPECT_EQ(report.outcomes[0].reason,
              "the worker was stopped: it closed its output and went on");
}

TEST_F(Runs, DoNotWaitForAChildOfTheWorkerThatHoldsItsPipes)
{
    // The child lives on in the background, as long as the test at the most.
    RunSettings settings;
    settings.worker = script("sleep 60 &\nexit 7");
    run(settings);
    ASSERT_EQ(report.outcomes.size(), 1U);
    EXPECT_EQ(report.outcomes[0].reason, "the worker ended with exit code 7");
}

TEST_F(Runs, StopAWorkerThatOutlivesItsInput)
{
    // The result that it sends is that of the first request; then it stays.
    const std::string frame =
        support::frameHeader(135, -1, 0, 0) +
        support::Encoder().int64(1).identifier({1}).int32(0).int32(3).int32(0).int32(0).bytes();
    std::ofstream(directory.path("frame")) << frame;
    RunSettings settings;
    settings.worker = script("cat " + directory.path("frame") + "\nexec sleep 1000");
    const Summary summary = run(settings);
    ASSERT_EQ(report.outcomes.size(), 1U);
    EXPECT_EQ(report.outcomes[0].name(), "OK");
    EXPECT_EQ(summary.trouble, "");
    EXPECT_EQ(err.str(),
              "netcheckctl: the worker was stopped: it did not end when its input did\n");
}

}  // namespace
