#include "siblings/Conversation.h"

#include "common/text.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace siblings {

namespace {

// Of a frame that is no message.
constexpr std::uint32_t largestBody = 64 * 1024;

char byteOf(std::uint64_t number)
{
    return static_cast<char>(number & 0xFF);
}

bool consistsOf(char byte, const char* bytes, std::uint64_t count)
{
    return count == 0 || (*bytes == byte && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

std::string bytesOf(const Frame& frame)
{
    return {reinterpret_cast<const char*>(&frame), sizeof frame};
}

}  // namespace

Conversation::Conversation(const io::Sibling& with, const Terms& agreed, Counts* counts)
    : peer(with), terms(agreed), totals(counts)
{}

// ---- Writing ------------------------------------------------------------------------------------

bool Conversation::hasToWrite() const
{
    if (silent)
        return false;
    return (sending && underWay < terms.window) || !outgoing.empty() || !rest.empty() || left != 0;
}

void Conversation::queue(Frame::Kind kind, const std::string& bytes)
{
    outgoing.push_back(
        bytesOf({.kind = kind, .size = static_cast<std::uint32_t>(bytes.size()), .number = 0}) +
        bytes);
}

void Conversation::begin()
{
    if (!outgoing.empty()) {
        rest = std::move(outgoing.front());
        outgoing.pop_front();
        return;
    }
    rest = bytesOf({.kind = Frame::message, .size = terms.size, .number = ++number});
    left = terms.size;
    ++underWay;
}

void Conversation::write()
{
    char* space = nullptr;
    const std::uint64_t room = peer.ostream().writeBegin(&space);
    if (rest.empty() && left == 0)
        begin();
    const auto ofRest = std::min<std::uint64_t>(rest.size(), room);
    std::copy_n(rest.data(), ofRest, space);
    rest.erase(0, ofRest);
    const auto ofBody = std::min(left, room - ofRest);
    std::memset(space + ofRest, byteOf(number), ofBody);
    left -= ofBody;
    if (ofBody != 0 && left == 0) {
        ++totals->sent;
        totals->sentBytes += terms.size;
    }
    peer.ostream().writeCommit(ofRest + ofBody);
}

// ---- Reading ------------------------------------------------------------------------------------

void Conversation::read(Listener* listener)
{
    char* data = nullptr;
    const std::uint64_t count = peer.istream().readBegin(&data);
    take(data, count, listener);
    peer.istream().readCommit(count);
}

void Conversation::take(const char* bytes, std::uint64_t count, Listener* listener)
{
    const char* const end = bytes + count;
    while (bytes != end && !lost) {
        const auto there = static_cast<std::uint64_t>(end - bytes);
        std::uint64_t part = 0;
        if (head.size() < sizeof frame) {
            part = std::min<std::uint64_t>(sizeof frame - head.size(), there);
            head.append(bytes, part);
            if (head.size() == sizeof frame) {
                std::memcpy(&frame, head.data(), sizeof frame);
                missing = frame.size;
                lost = !isPossible();
            }
        } else {
            part = std::min(missing, there);
            if (frame.kind == Frame::message)
                isRight = consistsOf(byteOf(frame.number), bytes, part) && isRight;
            else
                body.append(bytes, part);
            missing -= part;
        }
        bytes += part;
        if (lost)
            tellWrong(listener, "what is no frame");
        else if (head.size() == sizeof frame && missing == 0)
            finish(listener);
    }
}

bool Conversation::isPossible() const
{
    if (frame.kind == Frame::message)
        return frame.size == terms.size;
    if (frame.kind == Frame::taken)
        return frame.size == 0 && frame.number <= underWay;
    return frame.kind <= Frame::report && frame.size <= largestBody;
}

void Conversation::finish(Listener* listener)
{
    head.clear();
    if (frame.kind == Frame::taken) {
        underWay -= frame.number;
        return;
    }
    if (frame.kind != Frame::message) {
        const std::string whole = std::exchange(body, {});
        listener->told(peer.id(), frame.kind, whole);
        return;
    }
    ++totals->received;
    totals->receivedBytes += frame.size;
    const bool isNext = frame.number == std::exchange(expected, frame.number + 1);
    if (!isNext)
        tellWrong(listener, "message " + uint64ToString(frame.number) + " out of turn");
    if (!std::exchange(isRight, true))
        tellWrong(listener, "message " + uint64ToString(frame.number) + " with other bytes");
    if (++unconfirmed * 2 >= terms.window) {
        outgoing.push_back(
            bytesOf({.kind = Frame::taken, .size = 0, .number = std::exchange(unconfirmed, 0)}));
    }
}

void Conversation::tellWrong(Listener* listener, const std::string& why)
{
    ++totals->wrong;
    listener->wrong(peer.id(), why, lost);
}

}  // namespace siblings
