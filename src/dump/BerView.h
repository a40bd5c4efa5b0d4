// The forms in which messages of the client protocol, and what is none, are shown.
//
//   text  a heading with where the message lies, and a line for each value, for people
//   json  JSON Lines: an object for each message, and one for what is none
//
// What can't be understood is told on the error stream in both forms, with what was read of the
// message and the bytes around the place.
#pragma once

#include "dump/BerWalk.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace dump {

struct BadMessage {
    std::uint64_t offset = 0;     // in the stream
    std::string_view bytes;       // as far as they tell that it is bad
    std::uint64_t badOffset = 0;  // in the stream, of what is bad
    BerPlace place;
    std::string why;
    bool cut = false;  // it is good as far as it goes
};

class BerView {
public:
    // The streams are not owned. `legacy`: the messages are in the old numbering.
    BerView(std::ostream& stream, std::ostream& errorStream, bool oldNumbering)
        : out(stream), err(errorStream), legacy(oldNumbering)
    {}
    virtual ~BerView() = default;
    BerView(const BerView&) = delete;
    BerView& operator=(const BerView&) = delete;

    // `bytes` are one good message. `offset` is that in the stream.
    virtual void message(std::uint64_t offset, std::string_view bytes) = 0;
    virtual void bad(const BadMessage& bad);

protected:
    // Tells the sink what is in the bytes of a message, up to the first that is bad. Not owned.
    void walk(std::string_view bytes, BerSink* sink) const;

    std::ostream& out;

private:
    std::string linesBefore(const BadMessage& bad) const;

    std::ostream& err;
    bool legacy;
};

std::unique_ptr<BerView> makeBerView(bool json, std::ostream& out, std::ostream& err, bool legacy);

// "tag 163 (application 20)"
std::string tagText(protocol::BerTag tag);

}  // namespace dump
