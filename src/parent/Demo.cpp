#include "parent/Demo.h"

#include "common/errors.h"
#include "common/text.h"
#include "parent/Report.h"
#include "parent/Run.h"
#include "platform/Overlapped.h"

#include <algorithm>
#include <cstring>
#include <list>
#include <memory>
#include <vector>

namespace parent {

namespace {

enum class Play {
    refuses,  // nobody listens at the port
    closes,   // accepts, greets, and closes in order
    resets,   // takes the connection and breaks it
    stays,    // accepts and never closes
};

struct ServiceScript {
    const char* name;  // by which a check finds it
    const char* greeting;
    Play play;
    std::int32_t afterMs;  // how long it waits before it closes or resets; 0: not at all
};

// The reset comes late enough that the connection has long been made by then.
const ServiceScript serviceScripts[] = {
    {"quick", "", Play::closes, 0},  {"greeting", "220 ready when you are\r\n", Play::closes, 0},
    {"slow", "", Play::closes, 300}, {"deaf", "", Play::refuses, 0},
    {"rude", "", Play::resets, 500}, {"endless", "", Play::stays, 0},
};

struct CheckScript {
    const char* service;
    const char* kind;
    const char* query;
    std::int32_t warnIfAbove;
    std::int32_t alertIfAbove;
    std::int32_t expected;
    const char* story;
};

// A threshold of less than nothing is none, but shortens the time limit, here to one second.
constexpr std::int32_t oneSecondLimit = -9000;

const CheckScript checkScripts[] = {
    {"quick", "tcp", "", 0, 0, services::RESULT_OK, "accepts, and closes at once"},
    {"greeting", "tcp", "", 0, 0, services::RESULT_OK, "says something first, then closes"},
    {"slow", "tcp", "", 100, 0, services::RESULT_WARNING, "closes after 300 ms, warning above 100"},
    {"slow", "tcp", "", 50, 200, services::RESULT_ALERT, "closes after 300 ms, alert above 200"},
    {"deaf", "tcp", "", 0, 0, services::RESULT_CONNECT_FAILED, "refuses the connection"},
    {"rude", "tcp", "", 0, 0, services::RESULT_CLOSE_FAILED, "accepts, and breaks the connection"},
    {"endless", "tcp", "?connClose=false", 0, 0, services::RESULT_OK, "never closes, and need not"},
    {"endless", "tcp", "", 0, oneSecondLimit, services::RESULT_TIMEOUT,
     "never closes, but should within 1 s"},
};

std::uint32_t loopback()
{
    const unsigned char bytes[] = {127, 0, 0, 1};
    std::uint32_t address = 0;
    std::memcpy(&address, bytes, sizeof address);
    return address;
}

[[noreturn]] void failService(const char* what)
{
    throwSystemError(static_cast<std::uint32_t>(platform::wsaGetLastError()),
                     std::string("a service of the demo can't ") + what);
}

// A service that plays its script on each connection.
class Service final : public Attendant {
public:
    Service(MainSelector& mainSelector, const ServiceScript& whatToPlay)
        : selector(mainSelector),
          script(whatToPlay),
          listener(open()),
          newConnections("connections to the demo", platform::acceptReady(listener))
    {
        watching = script.play != Play::refuses;
        if (watching)
            selector.add(&newConnections, this);
    }

    ~Service()
    {
        closeListener();
        for (Connection& connection : connections) {
            platform::closeSocket(connection.socket);
            while (connection.sending)
                platform::sleepEx(platform::INFINITE);
        }
    }

    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    const char* name() const { return script.name; }

    std::uint16_t port() const
    {
        platform::Endpoint local;
        if (platform::getSockName(listener, &local) != 0)
            failService("learn its port");
        return local.port;
    }

    void ready(io::Selectable* s) override
    {
        if (s == &newConnections) {
            if (script.play == Play::resets)
                resetLater();
            else
                acceptAll();
        } else if (s == &resetTimer) {
            selector.remove(&resetTimer);
            closeListener();
        } else {
            for (Connection& connection : connections) {
                if (s != &connection.closeTimer)
                    continue;
                selector.remove(s);
                platform::closeSocket(connection.socket);
            }
        }
    }

private:
    struct Connection {
        platform::SocketHandle socket = platform::SocketHandle::invalid;
        io::Timer closeTimer;
        platform::Overlapped greeting;
        bool sending = false;
    };

    platform::SocketHandle open() const
    {
        const platform::Endpoint anyPort{loopback(), 0};
        if (script.play != Play::refuses) {
            const platform::SocketHandle socket = platform::listen(anyPort, 64);
            if (socket == platform::SocketHandle::invalid)
                failService("listen");
            return socket;
        }
        // A socket that is bound keeps others from the port, and one that doesn't listen refuses.
        const platform::SocketHandle socket = platform::tcpSocket();
        if (socket == platform::SocketHandle::invalid || platform::bind(socket, anyPort) != 0)
            failService("take a port");
        return socket;
    }

    void closeListener()
    {
        if (listener == platform::SocketHandle::invalid)
            return;
        if (watching)
            selector.remove(&newConnections);
        watching = false;
        platform::closeSocket(listener);
        listener = platform::SocketHandle::invalid;
    }

    // Connections that wait to be accepted are broken when their listener closes.
    void resetLater()
    {
        selector.remove(&newConnections);
        watching = false;
        resetTimer.when = Time::now() + Time(script.afterMs / 1000.0);
        selector.add(&resetTimer, this);
    }

    void acceptAll()
    {
        for (;;) {
            const platform::SocketHandle socket = platform::accept(listener, nullptr);
            if (socket == platform::SocketHandle::invalid)
                return;
            serve(connections.emplace_back(), socket);
        }
    }

    void serve(Connection& connection, platform::SocketHandle socket)
    {
        connection.socket = socket;
        connection.greeting.event = &connection;
        const std::size_t length = std::strlen(script.greeting);
        if (length != 0) {
            // It fits the buffers of a fresh connection, so it has left when this returns.
            const int result =
                platform::wsaSend(socket, script.greeting, static_cast<std::uint32_t>(length),
                                  &connection.greeting, greetingSent);
            connection.sending = result == 0 || platform::wsaGetLastError() ==
                                                    static_cast<int>(platform::ERROR_IO_PENDING);
        }
        if (script.play == Play::stays)
            return;
        if (script.afterMs == 0) {
            platform::closeSocket(socket);
            return;
        }
        connection.closeTimer.when = Time::now() + Time(script.afterMs / 1000.0);
        selector.add(&connection.closeTimer, this);
    }

    static void greetingSent(std::uint32_t, std::uint32_t, platform::Overlapped* overlapped)
    {
        static_cast<Connection*>(overlapped->event)->sending = false;
    }

    MainSelector& selector;
    const ServiceScript& script;
    platform::SocketHandle listener;
    HandleWatch newConnections;
    bool watching = false;  // `newConnections` is in the selector
    io::Timer resetTimer;
    std::list<Connection> connections;
};

std::string resultName(std::int32_t result)
{
    Outcome outcome;
    outcome.kind = Outcome::Kind::answered;
    outcome.result.result = result;
    return outcome.name();
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

// The table, with what was expected before it and what was not after it.
class DemoReport final : public Report {
public:
    DemoReport(std::ostream& stream, Console& messages, bool colour)
        : Report(stream, messages), table(makeReport(Format::table, stream, messages, colour))
    {}

    void begin(const std::vector<Check>& all, bool rounds) override
    {
        checks = all.data();
        write("Services that play a script on loopback, and what a check of each is expected to "
              "find:\n\n");
        std::size_t width = 0;
        for (const Check& check : all)
            width = std::max(width, check.target.text.size());
        for (std::size_t i = 0; i < all.size(); ++i) {
            write("  " + padded(all[i].target.text, width) + "  " +
                  padded(resultName(checkScripts[i].expected), 14) + "  " + checkScripts[i].story +
                  "\n");
        }
        write("\n");
        table->begin(all, rounds);
    }

    void add(const Outcome& outcome) override
    {
        table->add(outcome);
        const CheckScript& script = checkScripts[outcome.check - checks];
        const std::string expected = resultName(script.expected);
        if (outcome.name() == expected)
            ++asExpected;
        else
            surprises += outcome.check->target.text + ", which " + script.story + ": expected " +
                         expected + ", came " + outcome.name() + "\n";
    }

    void end(const Summary& summary) override
    {
        table->end(summary);
        write(surprises + uint64ToString(asExpected) + " of " + uint64ToString(summary.planned) +
              " as expected\n");
    }

    int exitCode(const Summary& summary) const override
    {
        if (summary.interrupted || !summary.trouble.empty())
            return Report::exitCode(summary);
        return parent::exitCode(asExpected == summary.planned ? Severity::ok : Severity::critical);
    }

private:
    std::unique_ptr<Report> table;
    const Check* checks = nullptr;
    std::uint64_t asExpected = 0;
    std::string surprises;
};

}  // namespace

int runDemo(const DemoSettings& settings, std::ostream& out, Console& console)
{
    MainSelector selector;
    std::list<Service> playing;
    for (const ServiceScript& script : serviceScripts)
        playing.emplace_back(selector, script);

    std::vector<Check> checks;
    for (const CheckScript& script : checkScripts) {
        const auto service = std::find_if(playing.begin(), playing.end(), [&](const Service& one) {
            return std::strcmp(one.name(), script.service) == 0;
        });
        Check check;
        check.target = parseTarget(std::string(script.kind) +
                                   "://127.0.0.1:" + uintToString(service->port()) + script.query);
        check.warnIfAbove = script.warnIfAbove;
        check.alertIfAbove = script.alertIfAbove;
        checks.push_back(check);
    }
    resolve(&checks);

    DemoReport report(out, console, settings.colour);
    RunSettings how;
    how.worker = settings.worker;
    how.verbose = settings.verbose;
    Run run(selector, checks, how, report, console);
    const Summary summary = run.run();
    report.end(summary);
    const int code = report.exitCode(summary);
    return code == 0 && !run.workersEndedWell() ? exitCode(Severity::critical) : code;
}

}  // namespace parent
