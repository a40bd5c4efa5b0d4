// Messages between siblings of which a reader can tell that each comes once, in order, whole and
// unchanged.
#pragma once

#include "io/sibling/Messenger.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace traffic {

enum class Kind : std::uint32_t {
    filling,  // random bytes
    peers,    // ids to write to from now on, 4 bytes each
    stop,     // end in an orderly way
};

// What is shorter than a head consists of this.
constexpr char padding = '#';

struct Head {
    Kind kind;
    std::int32_t from;
    std::int32_t to;
    std::uint32_t number;  // of the message from this sender to this receiver, from 1
    std::uint32_t size;    // of the body, which follows and is cut to the room
    std::uint32_t sum;
};

inline std::uint32_t sumOf(const char* bytes, std::size_t count)
{
    std::uint32_t sum = 2166136261;
    for (std::size_t i = 0; i != count; ++i)
        sum = (sum ^ static_cast<unsigned char>(bytes[i])) * 16777619;
    return sum;
}

struct Received {
    std::int32_t from = 0;
    bool isWhole = false;
    bool isEnd = false;  // of the sender
    Kind kind = Kind::filling;
    std::string body;
};

class Traffic {
public:
    Traffic(io::SiblingMessenger* over, std::uint32_t seed) : messenger(over), random(seed) {}

    std::uint32_t below(std::uint32_t limit)
    {
        return static_cast<std::uint32_t>(random() % limit);
    }

    // False if it can't be written now. A block that is too small for it is used up.
    bool send(std::int32_t to, Kind kind, std::string body)
    {
        io::Sibling peer = messenger->sibling(to);
        if (!peer.ostream().isReady())
            return false;
        char* space = nullptr;
        std::uint64_t room = 0;
        try {
            room = peer.ostream().writeBegin(&space);
        } catch (const io::EEndOfStream&) {
            return false;  // the reader will see the end
        }
        if (room < sizeof(Head) + (kind == Kind::filling ? 0 : body.size())) {
            const std::uint64_t used = std::min<std::uint64_t>(room, sizeof(Head) - 1);
            std::fill_n(space, used, padding);
            peer.ostream().writeCommit(used);
            return false;
        }
        if (body.size() > room - sizeof(Head))
            body.resize(room - sizeof(Head));
        const Head head{.kind = kind,
                        .from = messenger->ownId(),
                        .to = to,
                        .number = ++sent[to],
                        .size = static_cast<std::uint32_t>(body.size()),
                        .sum = sumOf(body.data(), body.size())};
        std::memcpy(space, &head, sizeof head);
        std::copy(body.begin(), body.end(), space + sizeof head);
        peer.ostream().writeCommit(sizeof head + body.size());
        return true;
    }
    bool sendFilling(std::int32_t to, std::uint32_t most)
    {
        std::string body(below(most), '\0');
        for (char& byte : body)
            byte = static_cast<char>(random());
        return send(to, Kind::filling, body);
    }

    // Something can be read. Takes a message, or a part of it.
    Received receive()
    {
        Received result;
        result.from = messenger->nextSender();
        io::Sibling peer = messenger->sibling(result.from);
        std::string& message = parts[result.from];
        try {
            char* data = nullptr;
            const std::uint64_t size = peer.istream().readBegin(&data);
            const bool cut = size > 1 && below(4) == 0;
            const std::uint64_t used = cut ? 1 + below(static_cast<std::uint32_t>(size - 1)) : size;
            message.append(data, used);
            peer.istream().readCommit(used);
            if (cut)
                return result;
        } catch (const io::EEndOfStream&) {
            peer.dropNullMessage();
            check(message.empty(), "ended in a message", result.from);
            result.isEnd = true;
            return result;
        }
        Head head{};
        if (message.size() < sizeof head) {
            check(message.find_first_not_of(padding) == std::string::npos, "sent other padding",
                  result.from);
            message.clear();
            return result;
        }
        std::memcpy(&head, message.data(), sizeof head);
        result.body = message.substr(sizeof head);
        message.clear();
        check(head.from == result.from && head.to == messenger->ownId(), "is another one",
              result.from);
        check(head.number == ++received[result.from], "sent a message twice or not at all",
              result.from);
        check(head.size == result.body.size() &&
                  head.sum == sumOf(result.body.data(), result.body.size()),
              "sent other bytes", result.from);
        result.isWhole = true;
        result.kind = head.kind;
        return result;
    }

    // The own area is one free block.
    bool areaIsFree() const
    {
        return messenger->block_off == messenger->mastart &&
               !messenger->isUsed(messenger->mastart) &&
               messenger->header(messenger->mastart).size + io::SiblingArea::headerSize ==
                   messenger->masize;
    }

private:
    void check(bool holds, const char* what, std::int32_t from) const
    {
        if (!holds)
            throw std::runtime_error("Sibling " + std::to_string(messenger->ownId()) +
                                     " found: sibling " + std::to_string(from) + " " + what);
    }

    io::SiblingMessenger* messenger;
    std::mt19937 random;
    std::map<std::int32_t, std::uint32_t> sent;
    std::map<std::int32_t, std::uint32_t> received;
    std::map<std::int32_t, std::string> parts;
};

}  // namespace traffic
