#include "siblings/Group.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"
#include "platform/Process.h"

#include <algorithm>
#include <iostream>
#include <utility>

namespace siblings {

namespace {

constexpr double patience = 10;  // seconds that may pass without the end of another child

// The windows of all peers fill half of an area at the most, unless a message is larger.
Terms termsOf(const Options& options)
{
    constexpr std::uint64_t largestWindow = 64;
    constexpr std::uint64_t overhead = sizeof(Frame) + io::SiblingArea::headerSize + 16;
    const std::uint64_t share = options.areaSize / 2 / (options.children + spareAreas);
    const std::uint64_t window =
        std::clamp<std::uint64_t>(share / (options.messageSize + overhead), 1, largestWindow);
    return {.size = options.messageSize, .window = static_cast<std::uint32_t>(window)};
}

std::string nameOf(std::int32_t id)
{
    return "sibling " + intToString(id);
}

Time after(double seconds)
{
    return seconds > 0 ? Time::now() + Time(seconds) : Time::infinity;
}

}  // namespace

GroupMessenger::GroupMessenger(const Options& options)
    : messenger({.children = options.children + spareAreas,
                 .parentArea = options.areaSize,
                 .childArea = options.areaSize})
{}

Group::Group(const Options& wanted, std::string program)
    : GroupMessenger(wanted),
      Member(&messenger, termsOf(wanted)),
      options(wanted),
      path(std::move(program)),
      interrupt("interrupt", platform::interruptRequested()),
      tableDue(after(options.interval)),
      killDue(after(options.killAfter)),
      endDue(after(options.duration))
{
    messenger.childEnded = [this](std::int32_t id, platform::ExitStatus status) {
        children[id].status = status;
        clock.when = Time::now();  // so that the wait ends, and settle() has its turn
    };
    selector.add(commands.stream(), Source::other);
    selector.add(&interrupt, Source::other);
    setClock();
}

Group::Outcome Group::run()
{
    say("messages of " + uintToString(terms.size) + " bytes; commands: " + commandForms);
    for (std::uint32_t i = 0; i != options.children; ++i)
        start();
    introduce();
    while (!ending || !children.empty()) {
        turn();
        settle();
    }
    showSummary();
    if (outputBroken)
        return Outcome::outputBroken;
    return somethingWrong || failed != 0 ? Outcome::bad : Outcome::good;
}

void Group::setClock()
{
    clock.when = std::min({tableDue, killDue, endDue, patienceDue});
}

void Group::clockRang()
{
    const Time now = Time::now();
    if (now >= tableDue) {
        askForTable();
        tableDue = now + Time(options.interval);
    }
    if (now >= killDue) {
        killDue = Time::infinity;
        const auto first = std::find_if(children.begin(), children.end(), [](const auto& entry) {
            return !entry.second.killed && !entry.second.stopping;
        });
        if (first != children.end())
            kill(first->first);
    }
    if (now >= endDue)
        endAll();
    if (now >= patienceDue)
        killAll();
    setClock();
}

// ---- Children -----------------------------------------------------------------------------------

void Group::start()
{
    const std::int32_t id =
        messenger.start(path, {"--as-child", uintToString(terms.size), uintToString(terms.window)});
    Child& child = children[id];
    child.pid = messenger.pid(id);
    say(nameOf(id) + " was started, process " + intToString(child.pid));
}

// Tells everybody to whom to write: to all others, and to this process.
void Group::introduce()
{
    for (const auto& [id, child] : children) {
        std::vector<std::int32_t> others = {0};
        for (const auto& [other, unused] : children) {
            if (other != id)
                others.push_back(other);
        }
        tell(id, Frame::peers,
             {reinterpret_cast<const char*>(others.data()), others.size() * sizeof id});
    }
    sendToRunning();
}

void Group::sendToRunning()
{
    std::vector<std::int32_t> ids;
    for (const auto& [id, child] : children) {
        if (!child.stopping)
            ids.push_back(id);
    }
    sendTo(ids);
}

void Group::kill(std::int32_t id)
{
    children[id].killed = true;
    say(nameOf(id) + " is to be killed");
    platform::killProcess(children[id].pid);
}

void Group::stop(std::int32_t id)
{
    children[id].stopping = true;
    tell(id, Frame::stop, "");
    sendToRunning();
}

void Group::peerEnded(std::int32_t id)
{
    children[id].allRead = true;
}

// After each turn: what can't be done in the middle of one.
void Group::settle()
{
    bool anyEnded = false;
    for (auto next = children.begin(); next != children.end();) {
        const auto found = next++;
        const auto& [id, child] = *found;
        if (!child.status || !child.allRead)
            continue;
        childEnded(id, child);
        forget(id);
        children.erase(found);
        anyEnded = true;
    }
    if (anyEnded) {
        if (!ending)
            introduce();
        else if (patienceDue != Time::infinity)
            patienceDue = after(patience);
        setClock();
        showTableIfComplete();
    }
    if (ending)
        return;
    if (children.empty() && commands.atEnd()) {
        say("no child is left, and no command can come");
        endAll();
    }
    if (outputBroken)
        endAll();
}

void Group::childEnded(std::int32_t id, const Child& child)
{
    ended += child.latest.counts;
    if (child.status->signalled) {
        say(nameOf(id) + " was killed (" + platform::signalName(child.status->code) + ")");
        ++(child.killed ? killedOnRequest : failed);
    } else if (child.status->code == 0 && child.stopping) {
        say(nameOf(id) + " has ended");
        ++endedWell;
    } else {
        say(nameOf(id) + " has failed with exit code " + intToString(child.status->code));
        ++failed;
    }
}

void Group::endAll()
{
    if (ending)
        return;
    ending = true;
    tableOpen = false;
    for (const auto& [id, child] : children) {
        if (!child.stopping)
            stop(id);
    }
    ignoreCommands();
    selector.remove(&interrupt);
    tableDue = killDue = endDue = Time::infinity;
    patienceDue = after(patience);
    setClock();
}

void Group::killAll()
{
    patienceDue = Time::infinity;
    for (const auto& [id, child] : children) {
        say(nameOf(id) + " does not end, and is killed");
        platform::killProcess(child.pid);
    }
}

// ---- What is told and asked for -----------------------------------------------------------------

void Group::told(std::int32_t from, Frame::Kind kind, const std::string& body)
{
    if (kind != Frame::report || body.size() != sizeof(Figures))
        return;
    Child& child = children[from];
    const std::uint64_t wrongBefore = child.latest.counts.wrong;
    body.copy(reinterpret_cast<char*>(&child.latest), sizeof(Figures));
    child.asked = false;
    // What exactly, it has told on standard error.
    if (child.latest.counts.wrong != wrongBefore) {
        say(nameOf(from) + " has got what it should not have");
        somethingWrong = true;
    }
    showTableIfComplete();
}

void Group::wrong(std::int32_t from, const std::string& why, bool /*isLost*/)
{
    somethingWrong = true;
    say("the parent has got from " + nameOf(from) + ": " + why);
}

void Group::otherIsReady(io::Selectable* s)
{
    if (s == &interrupt) {
        endAll();
        return;
    }
    for (const std::string& line : commands.read()) {
        if (!ending)
            obey(line);
    }
    if (commands.atEnd())
        ignoreCommands();
}

void Group::ignoreCommands()
{
    if (std::exchange(obeying, false))
        selector.remove(commands.stream());
}

void Group::obey(const std::string& line)
{
    try {
        const Command command = parseCommand(line);
        switch (command.kind) {
        case Command::nothing:
            return;
        case Command::kill:
        case Command::stop:
            obeyFor(command);
            return;
        case Command::start:
            start();
            introduce();
            return;
        case Command::quit:
            endAll();
            return;
        }
    } catch (const error::EParseError& e) {
        say(e.text());
    } catch (const error::Exception& e) {
        say("none can be started: " + shown(e.text()));
    }
}

void Group::obeyFor(const Command& command)
{
    const auto child = children.find(command.id);
    if (child == children.end() || child->second.status)
        say("there is no " + nameOf(command.id));
    else if (command.kind == Command::kill)
        kill(command.id);
    else if (child->second.stopping)
        say(nameOf(command.id) + " is ending already");
    else
        stop(command.id);
}

// ---- What is shown ------------------------------------------------------------------------------

void Group::say(const std::string& text)
{
    std::cout << text << '\n' << std::flush;
    outputBroken = outputBroken || !std::cout;
}

void Group::askForTable()
{
    if (tableOpen)
        showTable();
    tableOpen = true;
    for (auto& [id, child] : children) {
        if (child.asked || child.stopping)
            continue;
        child.asked = true;
        tell(id, Frame::ask, "");
    }
    showTableIfComplete();
}

void Group::showTableIfComplete()
{
    if (tableOpen && std::none_of(children.begin(), children.end(),
                                  [](const auto& entry) { return entry.second.asked; }))
        showTable();
}

void Group::showTable()
{
    tableOpen = false;
    const Figures own = figures();
    std::string table = tableHead(secondsSoFar()) + '\n' + tableRow("parent", own, ownShown);
    ownShown = own;
    for (auto& [id, child] : children) {
        if (child.asked) {
            table += '\n' + tableGap(nameOf(id));
        } else if (child.latest.age != child.shown.age) {
            table += '\n' + tableRow(nameOf(id), child.latest, child.shown);
            child.shown = child.latest;
        }
    }
    say(table);
}

void Group::showSummary()
{
    Counts all = ended;
    all += figures().counts;
    say(summary(all, secondsSoFar()));
    say("children: " + uintToString(endedWell) + " ended in order, " +
        uintToString(killedOnRequest) + " killed on request, " + uintToString(failed) + " failed");
}

double Group::secondsSoFar() const
{
    return static_cast<double>(figures().age) / 1e6;
}

}  // namespace siblings
