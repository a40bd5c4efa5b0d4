// What two members of the demonstration say to each other: frames in a stream of bytes.
//
// A frame is a head and a body. Most are messages, numbered from 1 by their sender, of which each
// byte of the body is the low byte of the number. So who reads them can tell that none is missing,
// comes twice, or has other bytes. Each frame is a message of the messenger; one for which the room
// is too small goes in several.
//
// Only so many messages are under way to a peer: the window. Who reads confirms them in lots.
// Without that, whoever is not running for a moment would find the areas of all others full. Then
// each room is as small as the message that has just been confirmed, and cut further by each that
// doesn't fit; and an area that is used up by one peer has no room for any other.
#pragma once

#include "io/sibling/Messenger.h"
#include "siblings/Figures.h"

#include <cstdint>
#include <deque>
#include <string>

namespace siblings {

struct Frame {
    enum Kind : std::uint32_t {
        message,
        taken,   // so many messages, `number`, have been read; no body
        peers,   // to a child: the ids of those to whom it shall write, 4 bytes each
        ask,     // to a child: for its figures; no body
        stop,    // to a child: end in an orderly way; no body
        report,  // from a child: its Figures
    };

    Kind kind;
    std::uint32_t size;    // of the body, in bytes
    std::uint64_t number;  // 0 but in messages and `taken`
};

// The same for all members.
struct Terms {
    std::uint32_t size;    // of the body of a message, in bytes; at least 1
    std::uint32_t window;  // how many messages can be under way; at least 1
};

// This process's side of it, with one peer.
class Conversation {
public:
    class Listener {
    public:
        // A frame that is no message.
        virtual void told(std::int32_t from, Frame::Kind kind, const std::string& body) = 0;
        // What came was not what it should be. If the peer `isLost`, nothing is taken from that one
        // any more: where the next frame begins can't be told.
        virtual void wrong(std::int32_t from, const std::string& why, bool isLost) = 0;

    protected:
        ~Listener() = default;
    };

    // Counts the messages in *counts.
    Conversation(const io::Sibling& with, const Terms& agreed, Counts* counts);

    io::SiblingOStream& room() const { return peer.ostream(); }
    // Whether there is always one more message to send, as far as the window allows.
    void setSending(bool isSending) { sending = isSending; }
    // Has it leave before all messages that have not begun.
    void queue(Frame::Kind kind, const std::string& body);
    // Nothing more is written, not even the rest of a frame.
    void fallSilent() { silent = true; }
    bool hasToWrite() const;
    // Writes a frame, or as much of it as there is room for. The stream must be ready, and there
    // must be something to write. Throws EEndOfStream if the peer has gone.
    void write();

    // Takes the next message of the messenger, for which the stream must be ready. Throws
    // EEndOfStream behind the last one.
    void read(Listener* listener);
    void dropEnd() { peer.dropNullMessage(); }

private:
    void begin();
    void take(const char* bytes, std::uint64_t count, Listener* listener);
    bool isPossible() const;
    void finish(Listener* listener);
    void tellWrong(Listener* listener, const std::string& why);

    io::Sibling peer;
    Terms terms;
    Counts* totals;

    bool sending = false;
    bool silent = false;
    std::uint64_t underWay = 0;        // messages that have begun and are not confirmed
    std::deque<std::string> outgoing;  // whole frames
    std::uint64_t number = 0;          // of the latest message
    std::string rest;                  // of the frame under way; of a message, of its head
    std::uint64_t left = 0;            // of the body of the message under way

    std::string head;  // of the incoming frame, as far as it has come
    Frame frame{};
    std::uint64_t missing = 0;  // of its body
    std::string body;           // if it is no message
    bool isRight = true;        // what has come of its body, if it is one
    std::uint64_t expected = 1;
    std::uint64_t unconfirmed = 0;  // messages that have been read
    bool lost = false;
};

}  // namespace siblings
