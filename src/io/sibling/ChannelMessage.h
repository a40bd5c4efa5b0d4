// What a parent sends to a child over their channel (see platform/Channel.h), with descriptors.
// Children send nothing over it.
#pragma once

#include <cstdint>

namespace io {

struct ChannelMessage {
    enum Kind : std::uint32_t {
        // The first one, to a child: its own id and area. Comes with the memory file of the region,
        // the end of its FIFO to read from, and the end of the parent's to write to. The value
        // names the form of all messages between siblings; another one is another form.
        welcome = 0x31424953,
        // These come with the end of the FIFO of the peer `id` to write to. A caller has not been
        // told yet, and says that it is up when it has. A host is told already: write to it.
        caller = 1,
        host = 2,
    };

    Kind kind;
    std::int32_t id;
    std::uint64_t areaStart;  // offset in the region, and size, in bytes; 0 if it is no welcome
    std::uint64_t areaSize;
};
static_assert(sizeof(ChannelMessage) == 24);

}  // namespace io
