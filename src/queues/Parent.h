// The link to the parent process: standard input and output, joined to the wire encoding.
#pragma once

#include "io/Pipe.h"
#include "io/Selector.h"
#include "queues/ioprim.h"

#include <typeinfo>

namespace protocol {

// A base of its own, so that the output stream is constructed before the ioprim that takes its
// address.
class ParentHack {
public:
    io::StdOutStream output;
};

// As a selectable, the link is its input side.
class Parent : public io::StdInStream, public ParentHack, public ioprim {
public:
    Parent() : ioprim(this, &output)
    {
        // The selectors go by the exact class. This one changes nothing of its input stream, so
        // what that tells them holds for it too.
        [[maybe_unused]] static const bool registered =
            (io::registerManagedClass(typeid(Parent)), true);
    }
};

}  // namespace protocol
