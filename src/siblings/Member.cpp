#include "siblings/Member.h"

#include <algorithm>

namespace siblings {

namespace {

// How many messages are read in one turn: more than are written, so that none pile up.
constexpr int mostReads = 64;

}  // namespace

Member::Member(io::SiblingMessenger* over, const Terms& agreed) : terms(agreed), link(over)
{
    selector.add(&link->some_sibling, Source::anySibling);
    selector.add(&clock, Source::clock);
}

void Member::turn()
{
    const auto [ready, source] = selector.poll();
    switch (source) {
    case Source::anySibling:
        readSome();
        return;
    case Source::room:
        writeNext();
        return;
    case Source::clock:
        clockRang();
        return;
    case Source::other:
        otherIsReady(ready);
        return;
    }
}

void Member::readSome()
{
    for (int i = 0; i != mostReads && link->some_sibling.isReady(); ++i) {
        const std::int32_t id = link->nextSender();
        Conversation& conversation = with(id);
        try {
            conversation.read(this);
            watchRoom(&conversation);
        } catch (const io::EEndOfStream&) {
            conversation.dropEnd();
            peerEnded(id);
            return;  // it can have been the last to read from
        }
    }
}

// Room is room for any peer. So they take turns, whoever's stream was handed out: else those who
// come first would always fill a small area.
void Member::writeNext()
{
    for (std::size_t i = 0; i != watched.size(); ++i) {
        latest = (latest + 1) % watched.size();
        Conversation* const conversation = watched[latest];
        if (!conversation->room().isReady())
            continue;
        try {
            conversation->write();
        } catch (const io::EEndOfStream&) {
            conversation->fallSilent();  // who reads will see the end
        }
        watchRoom(conversation);
        return;
    }
}

Conversation& Member::with(std::int32_t id)
{
    const auto found = conversations.find(id);
    if (found != conversations.end())
        return found->second;
    return conversations.try_emplace(id, link->sibling(id), terms, &counts).first->second;
}

// Only while there is something to write: a stream that is always ready would keep the selector
// from its wait.
void Member::watchRoom(Conversation* conversation)
{
    const auto found = std::find(watched.begin(), watched.end(), conversation);
    const bool isWatched = found != watched.end();
    if (isWatched == conversation->hasToWrite())
        return;
    if (isWatched) {
        watched.erase(found);
        selector.remove(&conversation->room());
    } else {
        watched.push_back(conversation);
        selector.add(&conversation->room(), Source::room);
    }
}

void Member::sendTo(const std::vector<std::int32_t>& ids)
{
    for (auto& [id, conversation] : conversations)
        conversation.setSending(false);
    for (const std::int32_t id : ids)
        with(id).setSending(true);
    for (auto& [id, conversation] : conversations)
        watchRoom(&conversation);
}

void Member::tell(std::int32_t id, Frame::Kind kind, const std::string& body)
{
    Conversation& conversation = with(id);
    conversation.queue(kind, body);
    watchRoom(&conversation);
}

void Member::fallSilentBut(std::int32_t one)
{
    for (auto& [id, conversation] : conversations) {
        if (id != one)
            conversation.fallSilent();
        watchRoom(&conversation);
    }
}

void Member::forget(std::int32_t id)
{
    const auto found = conversations.find(id);
    if (found == conversations.end())
        return;
    found->second.fallSilent();
    watchRoom(&found->second);
    conversations.erase(found);
}

Figures Member::figures() const
{
    const auto age = std::chrono::steady_clock::now() - born;
    return {.counts = counts,
            .age = std::chrono::duration_cast<std::chrono::microseconds>(age).count()};
}

}  // namespace siblings
