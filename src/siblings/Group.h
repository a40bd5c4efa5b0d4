// The parent of the demonstration: starts children, prints what goes between all, and does what it
// is asked to.
//
// A child counts as ended when its process has, and when all that it had sent has been read: then
// the others are told to leave it out, which each reads behind all that it had from that child.
//
// For a table, the children are asked for their figures; it is printed when all have answered, or
// without those who have not when the next one is due.
#pragma once

#include "io/HandleWatch.h"
#include "io/sibling/Parent.h"
#include "siblings/Commands.h"
#include "siblings/Member.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace siblings {

// Areas beside those of the first children. One that has ended keeps its own until all have read
// what it wrote there.
inline constexpr std::uint32_t spareAreas = 4;

struct Options {
    std::uint32_t children = 4;
    std::uint32_t messageSize = 1024;  // bytes
    std::uint32_t areaSize = 1 << 20;  // bytes; of each process
    double interval = 1;               // seconds between two tables
    double duration = 0;               // seconds; 0: until it is told to end
    double killAfter = 0;              // seconds; 0: never
};

// There before the member, and gone after it.
struct GroupMessenger {
    explicit GroupMessenger(const Options& options);

    io::SiblingParent messenger;
};

class Group final : private GroupMessenger, private Member {
public:
    enum class Outcome : std::uint8_t {
        good,
        bad,           // something came that should not, or a child failed by itself
        outputBroken,  // the tables can't be written
    };

    // `program`: what is started as a child, with the arguments --as-child and both terms. Throws
    // ERange and ESystemError.
    Group(const Options& wanted, std::string program);

    // Until an end is asked for. Throws an ESystemError if the first children can't be started.
    Outcome run();

private:
    struct Child {
        int pid = -1;
        Figures latest;         // as it has told
        Figures shown;          // in its latest row
        bool asked = false;     // for its figures, and has not answered yet
        bool stopping = false;  // has been told to
        bool killed = false;    // by us
        bool allRead = false;
        std::optional<platform::ExitStatus> status;  // once it has ended
    };

    void told(std::int32_t from, Frame::Kind kind, const std::string& body) override;
    void wrong(std::int32_t from, const std::string& why, bool isLost) override;
    void peerEnded(std::int32_t id) override;
    void clockRang() override;
    void otherIsReady(io::Selectable* s) override;

    void start();
    void kill(std::int32_t id);
    void stop(std::int32_t id);
    void introduce();
    void sendToRunning();
    void settle();
    void childEnded(std::int32_t id, const Child& child);
    void endAll();
    void killAll();
    void setClock();
    void obey(const std::string& line);
    void obeyFor(const Command& command);
    void ignoreCommands();

    void say(const std::string& text);
    void askForTable();
    void showTableIfComplete();
    void showTable();
    void showSummary();
    double secondsSoFar() const;

    Options options;
    std::string path;
    CommandInput commands;
    bool obeying = true;  // they are in the selector
    io::HandleWatch interrupt;
    std::map<std::int32_t, Child> children;
    Counts ended;      // of children that have
    Figures ownShown;  // this process's own, in the latest table
    bool tableOpen = false;

    Time tableDue;
    Time killDue;
    Time endDue;                        // of the demonstration
    Time patienceDue = Time::infinity;  // of the last children
    bool ending = false;
    bool outputBroken = false;
    std::uint32_t endedWell = 0;
    std::uint32_t killedOnRequest = 0;
    std::uint32_t failed = 0;
    bool somethingWrong = false;
};

}  // namespace siblings
