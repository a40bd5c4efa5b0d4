// Every broken rule that the selectors and streams find, with its text.
#include "io/Pipe.h"
#include "io/Selector.h"
#include "io/Tcp.h"
#include "tests/io/Fakes.h"
#include "tests/io/ScriptedPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <functional>
#include <memory>
#include <ostream>

namespace {

using fakes::Back;
using fakes::Foreign;
using fakes::Front;
using fakes::Managed;
using platform::Handle;
using scripted::state;

const bool registered = (io::registerManagedClass(typeid(Managed)), true);

// Lets a test into what only the storeys above use.
class Open : public io::Selector<int> {
public:
    using OsSelector::addOs;
    using OsSelector::markReady;
    using OsSelector::removeOs;
};

class OpenBack : public Back {
public:
    using StackedSelectableBack::watchUnderlying;
};

// Registers another one in its place.
class Cuckoo : public Foreign {
public:
    void addSelector(io::SelectorBase* selector) override
    {
        Foreign::addSelector(selector);
        egg.ready = true;
        dynamic_cast<io::Selector<int>&>(*selector).add(&egg, 1);
    }
    Foreign egg{"egg"};
};

class ThrowingBack : public Back {
public:
    using Back::Back;
    void underlyingIsReady(io::Selectable*) override { throw error::EFatal("no"); }
};

// A managed class that says nothing of its changes.
class Silent : public Managed {};
const bool silentRegistered = (io::registerManagedClass(typeid(Silent)), true);

struct Scene {
    Scene() { state.wait = scripted::abortingWait(); }

    void twiceCompleted(io::Selectable& s, std::uint32_t code = 0, std::uint32_t bytes = 0)
    {
        s.issueOverlapped();
        const auto operation = state.operations.front();
        scripted::complete(code, bytes);
        operation.routine(0, 0, operation.overlapped);
    }
    void completed(io::Selectable& s, std::uint32_t code, std::uint32_t bytes)
    {
        s.issueOverlapped();
        scripted::complete(code, bytes);
    }
    void placed(io::OStream& s)
    {
        char* space = nullptr;
        s.writeBegin(&space);
        s.writeCommit(10);
    }

    Open selector;
    Foreign foreign{"f"};
    Back back;
    io::PipeIStream pipeIn{"p", Handle{5}};
    io::PipeOStream pipeOut{"p", Handle{5}};
    io::Socket_Stream_Base base{"peer", platform::SocketHandle{7}};
    io::Socket_IStream socketIn{&base};
    io::Socket_OStream socketOut{&base};
};

struct Case {
    const char* text;
    std::function<void(Scene&)> action;
};

void PrintTo(const Case& one, std::ostream* out)
{
    *out << one.text;
}

const Case cases[] = {
    {"f added twice to Selector",
     [](Scene& s) {
         s.selector.add(&s.foreign, 1);
         s.selector.SelectorBase::add(&s.foreign, nullptr);
     }},
    {"f added twice to Selector",
     [](Scene& s) {  // once by a user, once by a back
         s.selector.add(&s.back.front, 1);
         s.selector.add(&s.foreign, 1);
         s.back.watch(&s.foreign);
     }},
    {"Added selectable f twice",
     [](Scene& s) {
         s.selector.add(&s.foreign, 1);
         s.selector.add(&s.foreign, 1);
     }},
    {"Tried to add StackedSelectableFront to OsSelector",
     [](Scene& s) {
         s.selector.addOs(&s.back.front);
     }},
    {"Selectable allready added to selector: f",
     [](Scene& s) {
         s.selector.addOs(&s.foreign);
         s.selector.addOs(&s.foreign);
     }},
    {"f not found on avail map",
     [](Scene& s) {
         s.selector.notifyReady(&s.foreign);
     }},
    {"f not found on os_avail!",
     [](Scene& s) {
         s.selector.markReady(&s.foreign);
     }},
    {"Unknown f removed twice from Selector",
     [](Scene& s) {
         s.selector.SelectorBase::remove(&s.foreign);
     }},
    {"The Selectable to remove: f was not found in internal list",
     [](Scene& s) {
         s.selector.remove(&s.foreign);
     }},
    {"Selectable to remove not on selector",
     [](Scene& s) {
         s.selector.removeOs(&s.foreign);
     }},
    {"Unable to remove selector in: f",
     [](Scene& s) {
         s.foreign.removeSelector(&s.selector);
     }},
    {"StackedSelectableBack::removeSelector got unknown Selector",
     [](Scene& s) {
         s.back.removeSelector(&s.selector);
     }},
    {"StackedSelectableBack underlying pointer is null",
     [](Scene&) {
         OpenBack().watchUnderlying(nullptr, false);
     }},
    {"SelectorBase::processReady got unknown Selectable f",
     [](Scene& s) {
         s.selector.processReady(&s.foreign);
     }},
    {"[first]::underlyingIsReady(f): no",
     [](Scene& s) {
         ThrowingBack back("first");
         back.watch(&s.foreign);
         s.selector.add(&back.front, 1);
         s.foreign.ready = true;
         s.selector.poll();
     }},
    {"pollImpl gave unknown selectable f",
     [](Scene& s) {
         s.foreign.ready = true;
         s.selector.SelectorBase::add(&s.foreign, nullptr);
         s.selector.poll();
     }},
    {"Got wrong selectable in waitReady: egg",
     [](Scene&) {
         Cuckoo().waitReady();
     }},
    {"avail not empty in ~SelectorBase",
     [](Scene& s) {
         io::BareSelector selector;
         selector.add(&s.foreign, &s.back);
     }},
    {"Front late added to a selector after the end of its back",
     [](Scene& s) {
         auto back = std::make_unique<Back>();
         Front late(back.get(), "late");
         back.reset();
         s.selector.add(&late, 1);
     }},
    {"Selector scan passed over a ready selectable: managed",
     [](Scene& s) {
         io::OsSelector::shadowScan = true;
         Silent silent;
         Managed managed;
         s.selector.add(&silent, 1);
         s.selector.add(&managed, 1);
         managed.want();
         s.selector.poll();
         managed.set(false);
         silent.ready = true;
         managed.want();
         s.selector.poll();
     }},
    {"Selector scan passed over a selectable with an operation to start: managed",
     [](Scene& s) {
         io::OsSelector::shadowScan = true;
         Silent silent;
         Managed managed;
         s.selector.add(&silent, 1);
         s.selector.add(&managed, 1);
         managed.want();
         s.selector.poll();
         managed.set(false);
         silent.wanted = true;
         managed.want();
         s.selector.poll();
     }},

    {"PipeIStream unsolicited callback",
     [](Scene& s) {
         s.twiceCompleted(s.pipeIn);
     }},
    {"PipeIStream overflow",
     [](Scene& s) {
         s.completed(s.pipeIn, 0, 4097);
     }},
    {"Overcommit in PipeIStream 12 is 2 bytes past end of buffer",
     [](Scene& s) {
         s.completed(s.pipeIn, 0, 10);
         s.pipeIn.readCommit(12);
     }},
    {"Double close on PipeIStream",
     [](Scene& s) {
         s.pipeIn.close();
         s.pipeIn.close();
     }},
    {"PipeOSTream unsolicited callback",
     [](Scene& s) {
         s.placed(s.pipeOut);
         s.twiceCompleted(s.pipeOut);
     }},
    {"PipeOStream excessive write",
     [](Scene& s) {
         s.placed(s.pipeOut);
         s.completed(s.pipeOut, 0, 11);
     }},
    {"Overcommit in PipeOStream 4100 is 14 bytes past end of buffer",
     [](Scene& s) {
         s.placed(s.pipeOut);
         s.pipeOut.writeCommit(4100);
     }},
    {"Overcommit in PipeOStream 18446744073709551615 is 18446744073709547519 bytes past end of "
     "buffer",
     [](Scene& s) {
         s.pipeOut.writeCommit(~std::uint64_t{0});
     }},

    {"Unsolicited callback in Socket_IStream",
     [](Scene& s) {
         s.twiceCompleted(s.socketIn);
     }},
    {"Invalid socket in Socket_IStream callback",
     [](Scene& s) {
         s.completed(s.socketIn, 10022, 0);
     }},
    {"Overcommit in Socket_IStream::callback",
     [](Scene& s) {
         s.completed(s.socketIn, 0, 4097);
     }},
    {"Overcommit in Socket_IStream",
     [](Scene& s) {
         s.socketIn.readCommit(1);
     }},
    {"Unsolicited callback in Socket_OStream",
     [](Scene& s) {
         s.placed(s.socketOut);
         s.twiceCompleted(s.socketOut, 0, 10);
     }},
    {"Invalid socket in Socket_IStream callback",
     [](Scene& s) {
         s.placed(s.socketOut);
         s.completed(s.socketOut, 10022, 0);
     }},
    {"Too large transmission in Socket_OStream",
     [](Scene& s) {
         s.placed(s.socketOut);
         s.completed(s.socketOut, 0, 11);
     }},
    {"Overcommit in Socket_OStream",
     [](Scene& s) {
         s.socketOut.writeCommit(4097);
     }},
    {"Socket handle invalid in socket destructor",
     [](Scene&) {
         io::SocketConnector connector(0x0100007f, 80);
         state.connects[0].ended(state.connects[0].context, 0);
         connector.takeSocket();
         const io::Socket socket(connector);
     }},
};

class Assertions : public testing::TestWithParam<Case> {};

TEST_P(Assertions, StopTheProcess)
{
    scripted::reset();
    // The whole line: nothing behind the text.
    const std::string line = std::string("Assertion failed: ") + GetParam().text + "\n";
    EXPECT_EXIT(
        {
            Scene scene;
            GetParam().action(scene);
            _exit(0);
        },
        testing::KilledBySignal(SIGABRT), testing::Eq(line));
}

INSTANTIATE_TEST_SUITE_P(All, Assertions, testing::ValuesIn(cases));

}  // namespace
