// Takes a stream of messages of the client protocol apart, and shows each as soon as its last byte
// has come.
//
// Messages stand one behind the other with nothing between them. Behind one that can't be
// understood the stream is not looked at any more. No bytes end the process, and no more is held
// than one message, of the size limit of protocol::BerReader at most, and what BerWalk holds of it.
#pragma once

#include "dump/BerView.h"
#include "dump/BerWalk.h"
#include "protocol/BerReader.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace dump {

class BerDump {
public:
    // The view is not owned. `legacy`: in the old numbering, as the view has it.
    BerDump(BerView& shown, bool legacy);

    void append(std::string_view bytes);
    // The stream is at its end: a message that has begun is shown as one that is cut off.
    void finish();
    // False once something could not be understood.
    bool isUnderstood() const { return understood; }

private:
    BerView& view;
    const bool oldNumbering;
    BerWalk walk;
    protocol::BerReader reader;
    std::string message;       // the bytes of the one that has begun
    std::uint64_t offset = 0;  // of it
    bool understood = true;
};

}  // namespace dump
