// The base of all service checks: the life of a check, its time limit, and its result.
//
// A check is a state machine that lives for one request. It is constructed, launched, called back
// in ioReady for each selectable of its own that is ready, and it ends in one of three ways: its
// own logic calls finish() or finishWith(), its timer fires, or the process stops and deletes it.
// The trouble of a probed service is a value of `stat.result`, never an exception.
//
// Rules for a derived check:
//   - finish() and finishWith() send the result and delete the check. Each is the last thing on
//     its path, no member is touched after it, and neither is called inside a try block: what the
//     link to the parent throws is no trouble of the service.
//   - Properties are read in start(), outside every try block: a property of the wrong type is
//     the parent's fault and ends the process.
//   - A check frees nothing by hand. Its members own its connector and sockets, and leave the
//     selector when they are destroyed.
#pragma once

#include "checks/Handler.h"
#include "common/StopWatch.h"
#include "common/errors.h"
#include "common/log.h"
#include "io/Selector.h"
#include "io/Tcp.h"
#include "io/Timer.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>

class ParentHandler;

// The words of a check for a connection that it can't make.
struct ConnectionTexts {
    const char* refused;  // trace line for an attempt that failed
    const char* failed;   // ordinary line for any other failure; the reason follows
};

class NetCheck : public Handler {
public:
    // `mainSelector` and `owner` are not owned; the request is copied.
    NetCheck(io::Selector<Handler*>* mainSelector, ParentHandler* owner,
             const remcheck::remcheck_conf& request);
    ~NetCheck() override = default;

    // The timer ends the check; all other selectables go to ioReady.
    void handle(io::Selectable* s) override;

    // Reads the properties and begins the work. Throws errors::tql for a property of the wrong
    // type. May end the check.
    virtual void start() = 0;

    // A selectable other than the timer is ready.
    virtual void ioReady(io::Selectable* s) = 0;

    // Sets the time limit, alertIfAbove milliseconds and ten seconds from now, and starts. Called
    // once. The check may be gone when it returns.
    void launch();

    // The check went well: the reply time decides the result. Deletes the check.
    void finish();

    // The check ends with this result. Deletes the check.
    void finishWith(std::int32_t result);

    const services::remcheck_stat& status() const { return stat; }

protected:
    // The property of the request, or null if it is absent or has no value: the default of the
    // check then stays in place.
    const tql::property_t* findProperty(std::uint32_t number) const;

    // Set `value` from the property, if there is one. Throw errors::tql for another type.
    void readProperty(std::uint32_t number, bool& value) const;
    void readProperty(std::uint32_t number, std::string& value) const;
    void readProperty(std::uint32_t number, std::uint32_t& value, std::uint32_t enumType) const;

    // Starts to connect to the target and registers the connector. Ends the check if there is no
    // socket to be had: nothing may follow on the caller's path.
    void connect(std::unique_ptr<io::SocketConnector>& connector);

    // Takes the connector, whose attempt is over, out of the selector, and makes the socket of
    // its connection: SocketType is io::Socket, or another class that takes over a connector.
    // Null if there is no connection: that has been logged, and the caller ends in
    // finishWith(RESULT_CONNECT_FAILED).
    template <class SocketType>
    std::unique_ptr<SocketType> makeSocket(io::SocketConnector* connector,
                                           const ConnectionTexts& texts);

    io::Selector<Handler*>* selector;
    ParentHandler* parent;
    remcheck::remcheck_conf conf;
    services::remcheck_stat stat;
    bool requestSent = false;  // a request was committed and has still to drain
    io::Timer timer;
    StopWatch stopWatch;

private:
    friend class Exchange;

    // Stops the stop-watch and stores the reply time. Gives it in milliseconds.
    std::int64_t measureReplyTime();
};

// The result of a check that went well after `replyTime` milliseconds. A threshold below 1 is
// none, and equality is no excess.
std::int32_t judgeReplyTime(std::int64_t replyTime, std::int32_t warnIfAbove,
                            std::int32_t alertIfAbove);

// Takes the next piece off a text that is cut at every occurrence of the whole delimiter. Empty
// pieces are passed over. False: there is none left.
bool takePiece(std::string_view* text, std::string_view delimiter, std::string_view* piece);

// Cuts a reply at every occurrence of the whole delimiter. Empty pieces are dropped; what follows
// the last delimiter is a piece, too.
std::list<std::string> tokenize_reply(std::string_view text, std::string_view delimiter);

template <class SocketType>
std::unique_ptr<SocketType> NetCheck::makeSocket(io::SocketConnector* connector,
                                                 const ConnectionTexts& texts)
{
    selector->remove(connector);
    try {
        return std::make_unique<SocketType>(*connector);
    } catch (const io::EConnection&) {
        if (traceWanted())
            log(texts.refused, logTrace);
    } catch (const error::Exception& e) {
        log(texts.failed + e.text(), logOrdinary);
    }
    return nullptr;
}
