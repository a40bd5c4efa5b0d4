#include "protocol/BerReader.h"

#include "common/text.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

namespace protocol {

namespace {

constexpr unsigned longFormNumber = 31;
constexpr unsigned digitBits = 7;
constexpr std::uint32_t greatestNumber = (std::uint32_t{1} << 29U) - 1;
constexpr unsigned indefinite = 0x80;
constexpr unsigned mostLengthBytes = 4;

[[noreturn]] void refuseSize(const char* what, std::uint64_t got, const char* relation,
                             std::uint64_t expected)
{
    throw EBer(what + uint64ToString(got) + relation + uint64ToString(expected));
}

}  // namespace

BerReader::BerReader(const BerProtocol& factory, bool legacyNumbering)
    : BerReader(factory, legacyNumbering, Limits())
{}

BerReader::BerReader(const BerProtocol& factory, bool legacyNumbering, Limits within)
    : messages(factory), legacy(legacyNumbering), limits(within)
{
    beginMessage();
}

BerReader::~BerReader()
{
    current.reset();
    while (!open.empty())
        open.pop_back();
}

std::unique_ptr<BerValue> BerReader::read(std::string_view* bytes)
{
    if (failure)
        std::rethrow_exception(failure);
    try {
        while (!bytes->empty()) {
            if (state == State::tag)
                takeShort(bytes);
            if (state == State::content) {
                takeContent(bytes);
            } else if (!isWhole() && !bytes->empty()) {
                ++taken;
                takeByte(static_cast<unsigned char>(bytes->front()));
                bytes->remove_prefix(1);
            }
            if (isWhole()) {
                beginMessage();
                return std::move(message);
            }
            requireRoom(1);
        }
    } catch (...) {
        failure = std::current_exception();
        taken = partStart;
        throw;
    }
    return nullptr;
}

bool BerReader::inMessage() const
{
    return failure || taken != messageStart;
}

void BerReader::beginMessage()
{
    messageStart = taken;
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max() - messageStart;
    messageEnd = messageStart + std::min(limits.messageSize, most);
}

// Of what is inside of a message, as much as has the usual forms and is there as a whole: an end of
// contents, a tag with an indefinite length, or a primitive child, each with one byte of tag and
// one of length. The rest is left to takeByte(), and so are heads that it will refuse.
void BerReader::takeShort(std::string_view* bytes)
{
    while (!open.empty()) {
        Open& parent = open.back();
        const std::size_t there = std::min<std::uint64_t>(bytes->size(), parent.end - taken - 1);
        if (there < 2)
            return;
        const auto identifier = static_cast<unsigned char>((*bytes)[0]);
        const auto second = static_cast<unsigned char>((*bytes)[1]);
        const std::uint32_t shortNumber = identifier & longFormNumber;
        const BerTag childTag = shortNumber << 3U | identifier >> 5U;
        if (identifier == 0) {
            if (second != 0 || parent.isDefinite)
                return;
            taken += 2;
            bytes->remove_prefix(2);
            endInnermost();
            expectTag();
        } else if (shortNumber == longFormNumber) {
            return;
        } else if (isConstructed(childTag)) {
            if (second != indefinite)
                return;
            BerChild child = childWith(childTag);
            taken += 2;
            partStart = taken;
            bytes->remove_prefix(2);
            open.push_back({.value = std::move(child), .end = parent.end, .isDefinite = false});
        } else {
            const std::size_t whole = std::size_t{2} + second;
            if (second >= indefinite || there < whole || open.size() >= limits.depth)
                return;
            const std::string_view content(bytes->data() + 2, second);
            auto& constructed = static_cast<BerConstructed&>(*parent.value);
            if (constructed.readChild(parent.children, childTag, legacy, content)) {
                ++parent.children;
                taken += whole;
            } else {
                takeWrapped(childTag, content);
            }
            partStart = taken;
            bytes->remove_prefix(whole);
        }
    }
}

// Of a primitive child with one byte of tag and one of length, by the value that reads it in pieces.
void BerReader::takeWrapped(BerTag childTag, std::string_view content)
{
    const BerChild child = childWith(childTag);
    auto& primitive = static_cast<BerPrimitive&>(*child);
    partStart = ++taken;
    primitive.prepare(content.size());
    partStart = ++taken;
    if (!content.empty())
        primitive.append(content.data(), content.size());
    taken += content.size();
    primitive.readDone();
}

// What will read the next child of the innermost value.
BerChild BerReader::childWith(BerTag childTag)
{
    const std::size_t depth = open.size() + 1;
    if (depth > limits.depth)
        refuseSize("Nesting exceeds allowed depth ", depth, " > ", limits.depth);
    BerChild child;
    if (open.empty()) {
        message = messages.create(childTag, legacy);
        child = BerChild(message.get(), BerChildDeleter(true));
    } else {
        Open& parent = open.back();
        auto& constructed = static_cast<BerConstructed&>(*parent.value);
        child = constructed.child(parent.children, childTag, legacy);
        ++parent.children;
    }
    // All casts of values lean on this one.
    if (child->hasChildren() != isConstructed(childTag))
        throw EBer("Tag " + uintToString(childTag) + " is " +
                   (isConstructed(childTag) ? "constructed" : "primitive") +
                   ", the value that it stands for isn't");
    return child;
}

void BerReader::takeByte(unsigned char byte)
{
    switch (state) {
    case State::tag:
        if (byte == 0) {
            if (open.empty())
                throw EBer("End of contents outside of a message");
            if (open.back().isDefinite)
                throw EBer("End of contents in a value of definite length");
            state = State::endOfContents;
            return;
        }
        tag = byte >> 5U;
        number = byte & 0x1FU;
        if (number != longFormNumber) {
            tagDone(number);
        } else {
            number = 0;
            state = State::tagDigit;
        }
        return;
    case State::tagDigit:
        // Only in front of the first digit is the number 0.
        if (number == 0 && byte == 0x80)
            throw EBer("Tag number with a leading zero digit");
        if (number > greatestNumber >> digitBits)
            throw EBer("Tag number of more than 29 bits");
        number = number << digitBits | (byte & 0x7FU);
        if ((byte & 0x80U) == 0) {
            if (number < longFormNumber)
                refuseSize("Tag number in the form of greater ones ", number, " < ",
                           longFormNumber);
            tagDone(number);
        }
        return;
    case State::length:
        if (byte == indefinite) {
            if (!isConstructed(tag))
                throw EBer("Indefinite length of a primitive value with tag " + uintToString(tag));
            openCurrent(end(), false);
        } else if (byte < indefinite) {
            number = byte;
            lengthDone();
        } else {
            left = byte & 0x7FU;
            if (left > mostLengthBytes)
                refuseSize("Length exceeds allowed size ", left, " > ", mostLengthBytes);
            number = 0;
            state = State::lengthByte;
        }
        return;
    case State::lengthByte:
        number = number << 8U | byte;
        if (--left == 0)
            lengthDone();
        return;
    case State::endOfContents:
        if (byte != 0)
            refuseSize("End of contents with length ", byte, " expected ", 0);
        endInnermost();
        expectTag();
        return;
    case State::content:
        break;
    }
}

void BerReader::takeContent(std::string_view* bytes)
{
    const std::size_t count = std::min<std::size_t>(left, bytes->size());
    static_cast<BerPrimitive&>(*current).append(bytes->data(), count);
    bytes->remove_prefix(count);
    taken += count;
    left -= static_cast<std::uint32_t>(count);
    if (left == 0)
        primitiveDone();
}

void BerReader::tagDone(std::uint32_t tagNumber)
{
    tag |= tagNumber << 3U;
    current = childWith(tag);
    state = State::length;
    partStart = taken;
}

void BerReader::lengthDone()
{
    // A value's own maximum goes first: its words say more than those about the room.
    if (!isConstructed(tag))
        static_cast<BerPrimitive&>(*current).prepare(number);
    requireRoom(number);
    if (isConstructed(tag)) {
        openCurrent(taken + number, true);
        return;
    }
    state = State::content;
    partStart = taken;
    left = number;
    if (left == 0)
        primitiveDone();
}

void BerReader::openCurrent(std::uint64_t until, bool isDefinite)
{
    open.push_back({.value = std::move(current), .end = until, .isDefinite = isDefinite});
    expectTag();
}

void BerReader::primitiveDone()
{
    current->readDone();
    current.reset();
    expectTag();
}

// Of a value's own end: its children are all there.
void BerReader::endInnermost()
{
    const Open& innermost = open.back();
    const auto& value = static_cast<BerConstructed&>(*innermost.value);
    if (innermost.children < value.requiredChildren() && !value.isRepeated())
        refuseSize("Too few children, got ", innermost.children, " expected ",
                   value.requiredChildren());
    innermost.value->readDone();
    open.pop_back();
}

// A tag is next, or an end of contents. All values whose definite length ends here have ended.
void BerReader::expectTag()
{
    state = State::tag;
    partStart = taken;
    while (!open.empty() && open.back().isDefinite && open.back().end == taken)
        endInnermost();
}

bool BerReader::isWhole() const
{
    return state == State::tag && open.empty() && message != nullptr;
}

// Where the innermost open value must have ended at the latest.
std::uint64_t BerReader::end() const
{
    return open.empty() ? messageEnd : open.back().end;
}

// Of the size limit and a definite length around it, whichever ends first.
void BerReader::requireRoom(std::uint64_t bytes) const
{
    if (taken + bytes <= end())
        return;
    if (end() == messageEnd)
        refuseSize("Message exceeds allowed size ", taken - messageStart + bytes, " > ",
                   limits.messageSize);
    refuseSize("Value exceeds the rest of the one around it ", bytes, " > ", end() - taken);
}

}  // namespace protocol
