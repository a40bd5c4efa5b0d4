#include "parent/Run.h"

#include "common/log.h"
#include "common/shown.h"
#include "common/text.h"

#include <algorithm>
#include <utility>

namespace parent {

namespace {

constexpr unsigned maximumDeathsWithoutWord = 3;

}  // namespace

Run::Run(MainSelector& mainSelector, const std::vector<Check>& whatToCheck, RunSettings how,
         Report& whereTo, Console& messages)
    : selector(mainSelector),
      checks(whatToCheck),
      settings(std::move(how)),
      report(whereTo),
      console(messages),
      interruptWatch("interrupt", platform::interruptRequested())
{
    summary.planned = std::uint64_t{settings.rounds} * checks.size();
    std::int64_t latestMs = 0;
    for (const Check& check : checks)
        latestMs = std::max(latestMs, check.limitMs());
    latestLimit = Time(static_cast<double>(latestMs) / 1000.0);
}

Run::~Run() = default;

Summary Run::run()
{
    began = std::chrono::steady_clock::now();
    selector.add(&interruptWatch, this);
    report.begin(checks, settings.rounds != 1);
    startRound();
    settle();
    while (stage != Stage::over) {
        const auto [s, attendant] = selector.poll();
        attendant->ready(s);
        settle();
    }

    watch(&progressTimer, &progressWatched, false);
    watch(&answerTimer, &answersWatched, false);
    watch(&roundTimer, &roundWatched, false);
    selector.remove(&interruptWatch);
    console.erase();
    worker.reset();
    return summary;
}

void Run::ready(io::Selectable* s)
{
    if (s == &interruptWatch) {
        interrupt();
    } else if (s == &answerTimer) {
        answerOverdue();
    } else if (s == &roundTimer) {
        watch(&roundTimer, &roundWatched, false);
        startRound();  // and settle() goes on from there
    } else if (s == &progressTimer) {
        showProgress();
    }
}

void Run::startRound()
{
    ++round;
    roundBegan = Time::now();
    stage = Stage::checking;
    Batch all;
    for (const Check& check : checks) {
        if (check.unresolved.empty()) {
            all.checks.push_back(&check);
            continue;
        }
        // Nothing can be asked about a host without an address.
        Outcome outcome;
        outcome.check = &check;
        outcome.kind = Outcome::Kind::unresolved;
        outcome.reason = check.unresolved;
        conclude(std::move(outcome));
    }
    if (!all.checks.empty())
        batches.push_back(std::move(all));
}

// Nothing is in progress, and a batch is there.
void Run::sendNextBatch()
{
    // Counted as in progress first, so that no check can be lost from here on, whatever happens.
    const Batch batch = std::move(batches.front());
    batches.pop_front();
    for (const Check* check : batch.checks)
        inProgress.emplace(++lastId, InProgress{check, batch.attempt});
    if (worker == nullptr && !startWorker())
        return;
    for (const auto& [id, one] : inProgress)
        worker->send(one.check->request(id));
    watchAnswers();
    showProgress();
}

// False if there is none to be had; the run is over then.
bool Run::startWorker()
{
    workerSpoke = false;
    silent = false;
    try {
        Worker::Listener& listener = *this;
        worker = std::make_unique<Worker>(
            selector, settings.worker, listener,
            Worker::Recorded{.writer = settings.recording, .number = ++workersStarted});
        return true;
    } catch (const error::Exception& e) {
        giveUp(shown(e.text()));
        return false;
    }
}

void Run::resultCame(const services::remcheck_stat& result)
{
    workerSpoke = true;
    const bool oneNumber = result.check_id.val.size() == 1;
    const auto found = oneNumber ? inProgress.find(result.check_id.val[0]) : inProgress.end();
    if (found == inProgress.end()) {
        worker->condemn("it sent a result that nothing waits for");
        return;
    }
    Outcome outcome;
    outcome.check = found->second.check;
    outcome.kind = Outcome::Kind::answered;
    outcome.attempt = found->second.attempt;
    outcome.result = result;
    inProgress.erase(found);
    conclude(std::move(outcome));
    if (inProgress.empty())
        watchAnswers();
}

void Run::logLineCame(const std::string& text, std::int32_t log_type)
{
    workerSpoke = true;
    if (!settings.verbose)
        return;
    console.line((log_type == logTrace ? "worker (trace): " : "worker: ") + shownLine(text));
    showProgress();
}

// After each event: acts on what it has brought about.
void Run::settle()
{
    if (!report.written() && stage != Stage::over)
        giveUp("the results can't be written to standard output");
    if (worker != nullptr && worker->over() && stage != Stage::over)
        workerOver();
    if (stage == Stage::checking && inProgress.empty() && !batches.empty())
        sendNextBatch();
    if (stage == Stage::checking && inProgress.empty())
        roundOver();
}

void Run::workerOver()
{
    const std::unique_ptr<Worker> dead = std::move(worker);
    const bool expected = stage == Stage::stopping && dead->endedWell();
    const std::vector<std::string> words = dead->lastWords();
    std::string why = "the worker " + dead->ending();
    if (!expected) {
        workersWell = false;
        console.message(shown(why) + (words.empty() ? "" : "; its last words:"));
    } else if (settings.verbose && !words.empty()) {
        console.line("the worker's last words:");
    }
    if (!expected || settings.verbose) {
        for (const std::string& line : words)
            console.line("    " + shownLine(line));
    }
    if (stage == Stage::stopping) {
        stage = Stage::over;
        return;
    }

    if (!words.empty())
        why += ": " + words.back();
    deathsWithoutWord = workerSpoke ? 0 : deathsWithoutWord + 1;
    if (deathsWithoutWord >= maximumDeathsWithoutWord) {
        giveUp(uintToString(deathsWithoutWord) +
               " workers have died one after the other without a single result");
        return;
    }
    recover(why, !silent);
}

// The worker is gone. What it had in progress, all of one batch, goes to a new one if it may, and
// is lost otherwise.
void Run::recover(const std::string& why, bool again)
{
    const std::map<std::uint32_t, InProgress> left = std::exchange(inProgress, {});
    watchAnswers();
    if (left.empty())
        return;
    const std::uint32_t attempt = left.begin()->second.attempt;
    if (!again || (attempt > 1 && left.size() == 1)) {
        for (const auto& [id, one] : left)
            lose(*one.check, one.attempt, why);
        return;
    }
    // The first death may have had nothing to do with what was asked for.
    const std::size_t half = attempt > 1 ? left.size() / 2 : 0;
    Batch first{{}, attempt + 1};
    Batch second{{}, attempt + 1};
    for (const auto& [id, one] : left)
        (first.checks.size() < half ? first : second).checks.push_back(one.check);
    batches.push_front(std::move(second));
    if (half != 0)
        batches.push_front(std::move(first));
    console.message(plural(left.size(), "check") + " in progress " +
                    (left.size() == 1 ? "is" : "are") + " sent again to a new worker" +
                    (half == 0 ? "" : ", one half after the other, to find what ends it"));
}

void Run::lose(const Check& check, std::uint32_t attempt, const std::string& why)
{
    Outcome outcome;
    outcome.check = &check;
    outcome.attempt = attempt;
    outcome.reason = why;
    conclude(std::move(outcome));
}

void Run::conclude(Outcome outcome)
{
    outcome.round = round;
    summary.tally.add(outcome);
    summary.elapsedMs = elapsedMs();
    report.add(outcome);
    showProgress();
}

void Run::roundOver()
{
    if (settings.rounds != 0 && round >= settings.rounds) {
        stopWorker();
        return;
    }
    stage = Stage::resting;
    roundTimer.when = roundBegan + settings.interval;
    watch(&roundTimer, &roundWatched, true);
}

void Run::stopWorker()
{
    summary.elapsedMs = elapsedMs();
    if (worker == nullptr) {
        stage = Stage::over;
        return;
    }
    stage = Stage::stopping;
    worker->closeInput();
}

// What is in progress has no result then.
void Run::giveUp(const std::string& why)
{
    console.message(why);
    summary.trouble = why;
    workersWell = false;
    recover(why, false);
    for (const Batch& batch : std::exchange(batches, {})) {
        for (const Check* check : batch.checks)
            lose(*check, batch.attempt, why);
    }
    summary.elapsedMs = elapsedMs();
    stage = Stage::over;
}

// Once the worker has been told to end, all results are there, and nothing is cut short.
void Run::interrupt()
{
    if (stage != Stage::stopping) {
        summary.interrupted = true;
        summary.elapsedMs = elapsedMs();
    }
    stage = Stage::over;
}

void Run::answerOverdue()
{
    // Requests may have left since the timer was set.
    watchAnswers();
    if (Time::now() < answerTimer.when.get())
        return;
    silent = true;
    worker->condemn("it gave no result when all time limits had been over for " +
                    doubleToString(static_cast<double>(settings.answerMargin), -1, 0) + " s");
    watch(&answerTimer, &answersWatched, false);
}

// Sets the time by which the next sign of the worker is due, or none if nothing is in progress.
void Run::watchAnswers()
{
    if (inProgress.empty() || worker == nullptr) {
        watch(&answerTimer, &answersWatched, false);
        return;
    }
    answerTimer.when = worker->lastFed() + latestLimit + settings.answerMargin;
    watch(&answerTimer, &answersWatched, true);
}

void Run::watch(io::Timer* timer, bool* watched, bool wanted)
{
    if (wanted && !*watched)
        selector.add(timer, this);
    else if (!wanted && *watched)
        selector.remove(timer);
    *watched = wanted;
}

void Run::showProgress()
{
    if (!console.showsProgress())
        return;
    progressTimer.when = Time::now() + Time::second;
    watch(&progressTimer, &progressWatched, true);
    if (stage == Stage::over)
        return;
    const std::uint64_t done = summary.tally.total();
    std::string text = uint64ToString(done);
    if (summary.planned != 0)
        text += " of " + uint64ToString(summary.planned);
    text += " done, " + sizeToString(inProgress.size()) + " running, " +
            int64ToString(elapsedMs() / 1000) + " s";
    console.progress(text);
}

std::int64_t Run::elapsedMs() const
{
    const auto span = std::chrono::steady_clock::now() - began;
    return std::chrono::duration_cast<std::chrono::milliseconds>(span).count();
}

}  // namespace parent
