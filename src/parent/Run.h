// A run: checks given to a worker, in one or more rounds, until each has an outcome.
//
// Each request carries a number of its own, by which its result is known again. A worker that
// dies is reported with its last words; another one is started, and what the first had in
// progress is sent again. If that worker dies, too, one of the checks may be what ends it: the
// rest is sent in halves, the second when the first has its outcomes, and so on at each death. A
// check that was alone with two workers when they died, or with one of such a half, has the
// outcome "no result", with the reason; so the check that ends workers is found, and costs no
// other check its result. Workers that die one after the other without a sign of life end the run.
//
// A worker that lives but does not answer is stopped when the latest time limit of the checks in
// progress has been over for a while; they are not sent again, for they had their time.
//
// A round begins an interval after the one before, or when that has ended if it took longer. The
// names of the targets are looked up once, before the first round.
//
// The user's interrupt ends the run at once, with the outcomes so far.
#pragma once

#include "common/Time.h"
#include "io/Timer.h"
#include "parent/Attendant.h"
#include "parent/Console.h"
#include "parent/Outcome.h"
#include "parent/Report.h"
#include "parent/Worker.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace parent {

struct RunSettings {
    std::string worker;        // path of the program
    std::uint32_t rounds = 1;  // 0: until the user interrupts
    Time interval{1, 0};       // from the start of one round to the start of the next
    bool verbose = false;      // show the worker's log lines, and what it says at an orderly end
    Time answerMargin{5, 0};   // how long after the latest limit a worker may stay silent
    dump::RecordingWriter* recording = nullptr;  // of what workers are sent, and send; null: none
};

class Run final : private Attendant, private Worker::Listener {
public:
    // All but the settings must outlive the run, and so must the recording. The report is told
    // about everything from begin() to the last outcome; its end() is the caller's.
    Run(MainSelector& mainSelector, const std::vector<Check>& whatToCheck, RunSettings how,
        Report& whereTo, Console& messages);
    ~Run();
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    // Takes over the interrupt of the process, and polls the selector until the run is over.
    Summary run();
    // Whether all workers lived to an orderly end.
    bool workersEndedWell() const { return workersWell; }

private:
    // A request under way.
    struct InProgress {
        const Check* check;
        std::uint32_t attempt;
    };

    enum class Stage {
        checking,  // a round is under way
        resting,   // until the next round
        stopping,  // the worker has been told to end
        over,
    };

    void ready(io::Selectable* s) override;
    void resultCame(const services::remcheck_stat& result) override;
    void logLineCame(const std::string& text, std::int32_t log_type) override;

    // Checks that are sent together, once nothing is in progress.
    struct Batch {
        std::vector<const Check*> checks;
        std::uint32_t attempt = 1;
    };

    void startRound();
    bool startWorker();
    void sendNextBatch();
    void settle();
    void workerOver();
    void recover(const std::string& why, bool again);
    void lose(const Check& check, std::uint32_t attempt, const std::string& why);
    void conclude(Outcome outcome);
    void roundOver();
    void stopWorker();
    void giveUp(const std::string& why);
    void interrupt();
    void answerOverdue();
    void watchAnswers();
    void watch(io::Timer* timer, bool* watched, bool wanted);
    void showProgress();
    std::int64_t elapsedMs() const;

    MainSelector& selector;
    const std::vector<Check>& checks;
    const RunSettings settings;
    Time latestLimit;  // of all checks
    Report& report;
    Console& console;

    Stage stage = Stage::resting;
    std::unique_ptr<Worker> worker;
    std::uint32_t workersStarted = 0;
    bool workerSpoke = false;        // the present worker has sent anything
    unsigned deathsWithoutWord = 0;  // in a row
    bool workersWell = true;
    bool silent = false;  // the present worker was stopped because it did not answer

    std::uint32_t round = 0;
    std::uint32_t lastId = 0;
    std::map<std::uint32_t, InProgress> inProgress;  // by the number of the request
    std::deque<Batch> batches;                       // still to be sent
    Summary summary;

    HandleWatch interruptWatch;
    io::Timer roundTimer;
    io::Timer answerTimer;
    io::Timer progressTimer;
    bool roundWatched = false;
    bool answersWatched = false;
    bool progressWatched = false;
    Time roundBegan;
    std::chrono::steady_clock::time_point began;
};

}  // namespace parent
