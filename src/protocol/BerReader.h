// Reads messages of the client protocol off a stream of bytes that come in pieces of any size.
//
//     protocol::BerReader reader(protocol::guiProtocol(), false);
//     while (std::string bytes = receive(); !bytes.empty()) {
//         std::string_view rest = bytes;
//         while (std::unique_ptr<protocol::BerValue> message = reader.read(&rest)) {
//             if (const auto* request = dynamic_cast<const protocol::Request*>(message.get()))
//                 answer(*request);
//         }
//     }
//     if (reader.inMessage())
//         complain("the peer hung up in the middle of a message");
//
// Bytes go to the value that they belong to as they come; nothing but the tag or length that is
// being read is kept. A length takes no memory before the value's own maximum has been checked, so
// a peer can't make the reader take more than what it sends, and what its messages may hold. That
// can be 48 times its bytes: an empty text in a list has 2 bytes on the wire, and 32 in memory, three
// times over while the list grows. The size of messages that is the default, 16 MiB, leaves room for
// seven of the longest texts (2 MiB) or 25,000 objects with ten properties, and costs 768 MiB at the
// worst. Whoever reads from many strangers at once sets one that it can afford, 48 times for each.
//
// Constructed values may have a definite length too, though writers of this protocol use none. How
// deep values are within each other costs no stack of the process.
//
// Refused of what X.690 can write: a tag number of more than 29 bits, a length of more than 4 bytes
// behind the first. Refused by X.690 too, so that a tag has one form only: a tag number below 31 in
// the bytes of a higher one (8.1.2.2), a leading zero digit of a higher one (8.1.2.4.2). Lengths
// may have leading zero bytes.
#pragma once

#include "protocol/BerValue.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string_view>
#include <vector>

namespace protocol {

class BerReader {
public:
    struct Limits {
        // Of values within each other. The message has depth 1, its children depth 2.
        unsigned depth = 64;
        // Of a message with its tag and length, in bytes.
        std::uint64_t messageSize = std::uint64_t{16} << 20U;
    };

    // The factory must outlive the reader.
    BerReader(const BerProtocol& factory, bool legacyNumbering);
    BerReader(const BerProtocol& factory, bool legacyNumbering, Limits within);
    BerReader(const BerReader&) = delete;
    BerReader& operator=(const BerReader&) = delete;
    ~BerReader();

    // Takes bytes off the front of `*bytes`: all of them, or those up to the end of the next
    // message, which is returned then. Null if the message isn't whole yet.
    // Throws EBer for bytes that are no message: with the words of the value or factory that
    // refuses them, or those of the reader, to whom it is also an error if a value ends before its
    // requiredChildren(), unless it isRepeated(). What was thrown once is thrown at each further
    // call: no more of the stream can be understood.
    std::unique_ptr<BerValue> read(std::string_view* bytes);

    // Whether a message has begun and isn't whole. True after an EBer.
    bool inMessage() const;
    // How many bytes have been taken, over all messages; after an EBer, those before the tag,
    // length, content or end of contents that was wrong.
    std::uint64_t offset() const { return taken; }

private:
    // What the next byte is.
    enum class State { tag, tagDigit, length, lengthByte, content, endOfContents };

    // A constructed value that has begun and hasn't ended.
    struct Open {
        BerChild value;
        std::uint64_t end;  // none of its bytes stands there or behind
        bool isDefinite;    // it ends there, too
        std::size_t children = 0;
    };

    void beginMessage();
    void takeShort(std::string_view* bytes);
    void takeWrapped(BerTag childTag, std::string_view content);
    BerChild childWith(BerTag childTag);
    void takeByte(unsigned char byte);
    void takeContent(std::string_view* bytes);
    void tagDone(std::uint32_t number);
    void lengthDone();
    void openCurrent(std::uint64_t until, bool isDefinite);
    void primitiveDone();
    void endInnermost();
    void expectTag();
    bool isWhole() const;
    std::uint64_t end() const;
    void requireRoom(std::uint64_t bytes) const;

    const BerProtocol& messages;
    const bool legacy;
    const Limits limits;

    State state = State::tag;
    std::uint64_t taken = 0;
    std::uint64_t partStart = 0;  // of the tag, length, content or end of contents in progress
    std::uint64_t messageStart = 0;
    std::uint64_t messageEnd = 0;  // by its size limit
    BerTag tag = 0;                // of `current`; of one that isn't whole yet, the low three bits
    std::uint32_t number = 0;      // of a tag, or a length, as far as it has come
    std::uint32_t left = 0;        // bytes of the length or content
    std::exception_ptr failure;    // null unless a read has thrown

    // Each refers to those before it, so they go from the last to the first.
    std::unique_ptr<BerValue> message;
    std::vector<Open> open;  // the message first
    BerChild current;        // has its tag, but is no open one, or not yet
};

}  // namespace protocol
