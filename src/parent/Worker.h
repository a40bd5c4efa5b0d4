// One worker process: started, fed with requests, read, and seen to its end.
//
// Requests are encoded into memory and fed to the worker as its input takes them, while its
// output is always read: the worker stops taking requests as long as its output is full, so a
// parent that waited for its input would wait for ever.
//
// A worker is over when its process has ended and both its pipes have given all that they held:
// a result that it sent with its last breath still counts. The pipes are given up after a moment,
// for a child of the worker may hold them open. A worker that sends what no worker sends, or that
// closes a pipe and goes on, is condemned: killed, with the reason as its ending.
#pragma once

#include "dump/Recording.h"
#include "io/Memory.h"
#include "io/Pipe.h"
#include "io/Timer.h"
#include "parent/Attendant.h"
#include "parent/FrameReader.h"
#include "platform/Process.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace parent {

class Worker final : public Attendant {
public:
    // Learns what the worker sends. May call condemn(), but must not destroy the worker.
    class Listener {
    public:
        virtual void resultCame(const services::remcheck_stat& result) = 0;
        virtual void logLineCame(const std::string& text, std::int32_t log_type) = 0;

    protected:
        ~Listener() = default;
    };

    // What is recorded of a worker, and where: its start, what goes through its pipes, its end.
    struct Recorded {
        dump::RecordingWriter* writer = nullptr;  // null: nowhere
        std::uint32_t number = 0;                 // of the worker
    };

    // Starts the program. Throws error::ESystemError if it can't be started. The selector, the
    // listener and the recording must outlive the worker.
    Worker(MainSelector& mainSelector, const std::string& path, Listener& whoListens,
           Recorded where);
    // Kills a worker that still runs.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Queues a request; it leaves while the selector is polled.
    void send(const remcheck::remcheck_conf& request);
    // When the worker last took some bytes of what was queued.
    Time lastFed() const { return fedAt; }
    // No request will follow. An orderly worker ends then; one that doesn't is condemned.
    void closeInput();
    // Kills the worker. `why` completes "the worker was stopped: "; the first reason counts.
    void condemn(const std::string& why);

    bool over() const;
    // Once it is over: how it ended, to complete "the worker ".
    std::string ending() const;
    bool endedWell() const { return fault.empty() && !status.signalled && status.code == 0; }
    // The last lines of its standard error, as they came.
    std::vector<std::string> lastWords() const;

    void ready(io::Selectable* s) override;

private:
    void record(dump::Entry::Kind kind, std::string_view bytes = {});
    void feed();
    void readOutput();
    void readErrors();
    void dispatch();
    void processEnded();
    void awaitEnd(const Time& limit);
    void deadlinePassed();
    void stopAwaiting();

    MainSelector& selector;
    Listener& listener;
    const Recorded recorded;
    platform::ChildProcess process;
    io::PipeOStream input;   // to its standard input
    io::PipeIStream output;  // from its standard output
    io::PipeIStream errors;  // from its standard error
    HandleWatch exitWatch;
    io::Timer deadline;  // of a wait for its end

    io::MemoryOStream queued;
    bool feeding = false;  // `input` is in the selector
    bool inputClosed = false;
    Time fedAt;
    FrameReader frames;
    std::string errorText;  // the last part of it

    bool outputOver = false;
    bool errorsOver = false;
    bool exited = false;
    bool awaiting = false;  // `deadline` is in the selector
    bool pipesGivenUp = false;
    platform::ExitStatus status;
    std::string fault;  // why it was condemned
};

}  // namespace parent
