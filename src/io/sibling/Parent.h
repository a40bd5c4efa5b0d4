// The parent of a group of siblings: makes the shared region, starts children, connects them with
// each other, and notices their end.
//
//     io::SiblingParent parent({.children = 4, .parentArea = 1 << 20, .childArea = 1 << 20});
//     const std::int32_t id = parent.start("/usr/lib/server/worker", {"--quiet"});
//     io::Selector<int> selector;
//     selector.add(&parent.some_sibling, 0);
//     for (;;) {
//         selector.poll();
//         io::Sibling child = parent.sibling(parent.nextSender());
//         char* data = nullptr;
//         const std::uint64_t size = child.istream().readBegin(&data);  // EEndOfStream: it ended
//         child.istream().readCommit(use(data, size));
//     }
//
// All that messengers do holds (see Messenger.h). Ids are 1, 2, 3 and so on, in the order of the
// starts, and none comes twice.
//
// A child that ends, in whatever way, is noticed by its process descriptor, or before that by the
// broken FIFO. Its messages that have been announced can still be read, each as a whole; behind
// them comes the end of its stream, to be taken off with Sibling::dropNullMessage. Its area serves
// the next child once nobody reads in it any more.
#pragma once

#include "io/Timer.h"
#include "io/sibling/Messenger.h"
#include "platform/OwnedDescriptor.h"
#include "platform/Process.h"
#include "platform/SharedMemory.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace io {

struct SiblingGroupSize {
    std::uint32_t children;    // how many areas for children there are
    std::uint64_t parentArea;  // in bytes, as all sizes; taken up to a multiple of 8
    std::uint64_t childArea;
};

// What must be there before the messenger, and go after it.
struct SiblingGroupMemory {
    // Throws ERange if the areas are too small, or too large for a region of 4 GiB, and an
    // ESystemError if the system denies something.
    explicit SiblingGroupMemory(const SiblingGroupSize& wanted);

    SiblingGroupSize size;
    platform::SharedMemory memory;
    platform::Pipe incoming;  // the parent's FIFO
};

class SiblingParent : private SiblingGroupMemory,
                      private SiblingParentSide,
                      public SiblingMessenger {
public:
    explicit SiblingParent(const SiblingGroupSize& wanted);
    ~SiblingParent() override;

    // Starts a program as a child, in which a SiblingChild takes over descriptor 3, and gives its
    // id. The standard descriptors are those of this process. Throws an ESystemError, also if all
    // areas are in use.
    std::int32_t start(const std::string& path, const std::vector<std::string>& arguments);
    // Makes a child of a process that runs already, and that has the other end of `channel` (see
    // platform::Channel). Takes the end over. Throws as start does.
    std::int32_t adopt(platform::OwnedDescriptor channel, int pid);

    // Whether a child has taken over its end, and has not ended.
    bool isUp(std::int32_t id) const;
    int pid(std::int32_t id) const;  // -1 for a child that has ended
    std::size_t livingChildren() const;

    // Called when a child has ended and all that it had sent has arrived, from inside the wait of a
    // selector. The code is -1 for one that was adopted and is no child process of this one. May
    // start children, but must not throw.
    std::function<void(std::int32_t id, platform::ExitStatus status)> childEnded;

protected:
    void otherIsReady(Selectable* u) override;

private:
    struct Child;

    void requestPeer(std::int32_t target, std::int32_t requester) override;
    void areaLeft(std::int32_t id, std::int32_t from) override;
    void siblingIsUp(std::int32_t id) override;

    Child& newChild();
    void dropChild(std::int32_t id);
    void welcome(Child& child);
    Child* findLiving(std::int32_t id) const;
    void introduce(Child& child);
    void introduceLater();
    void processEnded(Child& child);
    void askReaders(Child& ended);
    void dropEnded();

    Timer introduce_again;
    std::vector<bool> area_used;
    std::map<std::int32_t, std::unique_ptr<Child>> children;
    std::int32_t last_id = 0;
};

}  // namespace io
