#include "parent/Worker.h"

#include "common/errors.h"
#include "common/text.h"
#include "queues/event.h"
#include "queues/records/control.h"
#include "queues/typeForms.h"

#include <algorithm>
#include <cstring>

namespace parent {

namespace {

// How long a worker may take to end once it should, and how long its pipes may stay open once it
// has ended.
constexpr Time endLimit(5, 0);
constexpr Time strayLimit(1, 0);

constexpr std::size_t keptErrorText = 4096;
constexpr std::size_t keptErrorLines = 8;

platform::ChildProcess startWorker(const std::string& path)
{
    platform::ChildProcess process;
    if (!platform::startProcess(path, {}, &process))
        throwSystemError(platform::getLastError(), "the worker " + path + " can't be started");
    return process;
}

}  // namespace

Worker::Worker(MainSelector& mainSelector, const std::string& path, Listener& whoListens,
               Recorded where)
    : selector(mainSelector),
      listener(whoListens),
      recorded(where),
      process(startWorker(path)),
      input("input of the worker", process.standardInput),
      output("output of the worker", process.standardOutput),
      errors("errors of the worker", process.standardError),
      exitWatch("end of the worker", process.exited),
      fedAt(Time::now())
{
    selector.add(&output, this);
    selector.add(&errors, this);
    selector.add(&exitWatch, this);
    record(dump::Entry::Kind::started);
}

Worker::~Worker()
{
    if (!exited) {
        platform::killProcess(process.pid);
        platform::collectExit(process.pid);
        selector.remove(&exitWatch);
        if (fault.empty())
            fault = "the run was over";
    }
    platform::closeHandle(process.exited);
    // Nothing that was sent with the last breath is missing now.
    record(dump::Entry::Kind::ended, ending());
}

void Worker::record(dump::Entry::Kind kind, std::string_view bytes)
{
    if (recorded.writer != nullptr)
        recorded.writer->write(kind, recorded.number, bytes);
}

void Worker::send(const remcheck::remcheck_conf& request)
{
    using Request = queues::devent<queues::CHECK_REQUEST, remcheck::remcheck_conf>;
    if (exited || !fault.empty() || inputClosed)
        return;
    if (queued.bytes().empty())
        fedAt = Time::now();
    protocol::ioprim link(nullptr, &queued);
    link << Request(queues::queue_t::rmch, 0, request);
    link.flush();
    if (!feeding)
        selector.add(&input, this);
    feeding = true;
}

void Worker::closeInput()
{
    if (inputClosed)
        return;
    inputClosed = true;
    if (feeding)
        selector.remove(&input);
    feeding = false;
    try {
        input.close();
    } catch (const error::Exception&) {
        // The pipe is broken already: the worker has gone or goes, which its end will tell.
    }
    if (!exited)
        awaitEnd(endLimit);
}

void Worker::condemn(const std::string& why)
{
    if (!fault.empty())
        return;
    fault = why;
    if (!outputOver)
        selector.remove(&output);
    outputOver = true;
    if (feeding)
        selector.remove(&input);
    feeding = false;
    if (!exited)
        platform::killProcess(process.pid);
}

bool Worker::over() const
{
    return exited && ((outputOver && errorsOver) || pipesGivenUp);
}

std::string Worker::ending() const
{
    if (!fault.empty())
        return "was stopped: " + fault;
    if (status.signalled)
        return "was killed by signal " + intToString(status.code) + " (" +
               platform::signalName(status.code) + ")";
    return "ended with exit code " + intToString(status.code);
}

std::vector<std::string> Worker::lastWords() const
{
    std::vector<std::string> lines = splitToVector(errorText, '\n', false);
    if (lines.size() > keptErrorLines)
        lines.erase(lines.begin(), lines.end() - keptErrorLines);
    return lines;
}

void Worker::ready(io::Selectable* s)
{
    if (s == &output)
        readOutput();
    else if (s == &errors)
        readErrors();
    else if (s == &input)
        feed();
    else if (s == &exitWatch)
        processEnded();
    else if (s == &deadline)
        deadlinePassed();
}

void Worker::feed()
{
    const std::string_view bytes = queued.bytes();
    if (bytes.empty()) {
        selector.remove(&input);
        feeding = false;
        return;
    }
    try {
        char* room = nullptr;
        const std::uint64_t n = std::min<std::uint64_t>(input.writeBegin(&room), bytes.size());
        std::memcpy(room, bytes.data(), n);
        input.writeCommit(n);
        record(dump::Entry::Kind::toWorker, bytes.substr(0, n));
        queued.take(n);
        fedAt = Time::now();
    } catch (const error::Exception&) {
        // It takes no input any more. As a rule it is about to end, and its end tells more than
        // the broken pipe.
        selector.remove(&input);
        feeding = false;
        inputClosed = true;
        if (!exited)
            awaitEnd(strayLimit);
    }
}

void Worker::readOutput()
{
    try {
        char* data = nullptr;
        const std::uint64_t n = output.readBegin(&data);
        record(dump::Entry::Kind::fromWorker, {data, n});
        frames.append({data, n});
        output.readCommit(n);
    } catch (const error::Exception&) {
        // The end of the stream, or as good as that.
        selector.remove(&output);
        outputOver = true;
        if (!exited && !inputClosed)
            awaitEnd(strayLimit);
        return;
    }
    dispatch();
}

void Worker::dispatch()
{
    try {
        while (fault.empty()) {
            const std::unique_ptr<queues::event> event = frames.next();
            if (event == nullptr)
                return;
            using Result = queues::devent<queues::CHECK_RESULT, services::remcheck_stat>;
            using LogLine = queues::devent<queues::SYSTEM_LOG_REQUEST, control::Log_Request_Data>;
            if (const auto* result = dynamic_cast<const Result*>(event.get()))
                listener.resultCame(result->data);
            else if (const auto* line = dynamic_cast<const LogLine*>(event.get()))
                listener.logLineCame(line->data.msg, line->data.log_type);
            else if (const auto* failed = dynamic_cast<const queues::exevent*>(event.get()))
                condemn("it sent the exception \"" + failed->text + "\"");
        }
    } catch (const queues::EBadFrame& e) {
        condemn("it sent what no worker sends, " + e.text());
    } catch (const error::Exception& e) {
        condemn("it sent what can't be read: " + e.text());
    }
}

void Worker::readErrors()
{
    try {
        char* data = nullptr;
        const std::uint64_t n = errors.readBegin(&data);
        errorText.append(data, n);
        errors.readCommit(n);
        // Cut rarely, so that each cut has much to drop.
        if (errorText.size() > 2 * keptErrorText)
            errorText.erase(0, errorText.size() - keptErrorText);
    } catch (const error::Exception&) {
        selector.remove(&errors);
        errorsOver = true;
    }
}

void Worker::processEnded()
{
    selector.remove(&exitWatch);
    exited = true;
    status = platform::collectExit(process.pid);
    if (feeding)
        selector.remove(&input);
    feeding = false;
    stopAwaiting();
    awaitEnd(strayLimit);
}

void Worker::awaitEnd(const Time& limit)
{
    if (awaiting)
        return;
    deadline.when = Time::now() + limit;
    selector.add(&deadline, this);
    awaiting = true;
}

void Worker::stopAwaiting()
{
    if (awaiting)
        selector.remove(&deadline);
    awaiting = false;
}

void Worker::deadlinePassed()
{
    stopAwaiting();
    if (exited)
        pipesGivenUp = true;
    else if (outputOver)
        condemn("it closed its output and went on");
    else if (inputClosed)
        condemn("it did not end when its input did");
}

}  // namespace parent
