// A TCP service of the demo: it plays its script on each connection, with TLS or without.
//
// A script is a list of steps: await a request, answer it, after a while if so told. A request is
// whatever comes up to the script's end of a request; what follows it waits for the next step.
// When the last step is done, the connection closes or stays.
#pragma once

#include "io/Timer.h"
#include "parent/Attendant.h"
#include "parent/DemoService.h"
#include "parent/DemoTls.h"

#include <cstdint>
#include <list>
#include <span>

namespace parent {

struct DemoStep {
    const char* expect;  // what the request begins with; null: none is awaited
    const char* answer;
    const char* otherwise = "";  // the answer to any other request, which ends the script
    std::int32_t afterMs = 0;    // milliseconds from the request to the answer
};

struct DemoScript {
    enum class Play {
        closes,   // after the last step
        stays,    // never closes
        refuses,  // nobody listens at the port
        resets,   // breaks the connection 500 ms after it was made; plays no step, and only once
    };
    const char* name;  // by which a check finds the service
    std::span<const DemoStep> steps;
    Play play = Play::closes;
    bool tls = false;
    const char* requestEnd = "\r\n";
};

class DemoDialogue final : public DemoService, private Attendant {
public:
    // All three must outlive the service. Throws error::ESystemError.
    DemoDialogue(MainSelector& mainSelector, const DemoScript& whatToPlay,
                 const DemoTlsIdentity& whoSpeaks);
    ~DemoDialogue() override;

    std::uint16_t port() const override { return portOf(listener.handle); }

private:
    class Connection;
    struct Listener {
        explicit Listener(platform::SocketHandle taken) : handle(taken) {}
        ~Listener() { close(); }
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;
        void close();
        platform::SocketHandle handle;
    };

    void ready(io::Selectable* s) override;
    platform::SocketHandle open() const;
    void acceptAll();

    MainSelector& selector;
    const DemoScript& script;
    const DemoTlsIdentity& identity;
    Listener listener;
    HandleWatch newConnections;
    io::Timer resetTimer;
    std::list<Connection> connections;
};

}  // namespace parent
