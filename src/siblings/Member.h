// A member of the group: writes to all peers that it is told of, and reads what they write. Parent
// and children have this in common.
#pragma once

#include "io/Selector.h"
#include "io/Timer.h"
#include "siblings/Conversation.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace siblings {

class Member : protected Conversation::Listener {
public:
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

protected:
    // Where a turn of the loop comes from.
    enum class Source : std::uint8_t { anySibling, room, clock, other };

    // `over` must outlive the member.
    Member(io::SiblingMessenger* over, const Terms& agreed);
    ~Member() = default;

    // Waits, and does what there is to do with peers. Gives the rest to the derived class.
    void turn();
    // All that it has sent has been read.
    virtual void peerEnded(std::int32_t id) = 0;
    virtual void clockRang() = 0;
    virtual void otherIsReady(io::Selectable* s) = 0;

    // From now on messages go to these, and to no others. What has begun still leaves.
    void sendTo(const std::vector<std::int32_t>& ids);
    void tell(std::int32_t id, Frame::Kind kind, const std::string& body);
    bool hasToWrite(std::int32_t id) { return with(id).hasToWrite(); }
    // Writes nothing more to all but this one, not even the rest of a message.
    void fallSilentBut(std::int32_t id);
    void forget(std::int32_t id);

    Figures figures() const;

    const Terms terms;

private:
    Conversation& with(std::int32_t id);
    void readSome();
    void writeNext();
    void watchRoom(Conversation* conversation);

    io::SiblingMessenger* link;
    Counts counts;
    std::chrono::steady_clock::time_point born = std::chrono::steady_clock::now();
    std::map<std::int32_t, Conversation> conversations;
    std::vector<Conversation*> watched;  // whose room is in the selector
    std::size_t latest = 0;              // place among these of whose turn it was

protected:
    io::Selector<Source> selector;
    io::Timer clock;
};

}  // namespace siblings
