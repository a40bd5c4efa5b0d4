#include "siblings/Child.h"

#include "common/text.h"
#include "io/sibling/Child.h"
#include "platform/Overlapped.h"
#include "siblings/Member.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

namespace siblings {

namespace {

// There before the member, and gone after it.
struct ChildMessenger {
    io::SiblingChild messenger;
};

class Child final : private ChildMessenger, private Member {
public:
    explicit Child(const Terms& agreed) : Member(&messenger, agreed)
    {
        selector.add(&messenger.shutdown_end, Source::other);
    }

    int run()
    {
        while (!ended) {
            turn();
            if (stopping && !hasToWrite(0))
                messenger.shutDown();
        }
        return figures().counts.wrong == 0 ? 0 : 1;
    }

private:
    void told(std::int32_t from, Frame::Kind kind, const std::string& body) override
    {
        if (from != 0 || stopping)
            return;
        if (kind == Frame::peers)
            meet(body);
        else if (kind == Frame::ask)
            report();
        else if (kind == Frame::stop)
            stop();
    }
    // The parent leaves somebody out only behind all that this one had sent.
    void meet(const std::string& bytes)
    {
        std::vector<std::int32_t> ids(bytes.size() / sizeof(std::int32_t));
        bytes.copy(reinterpret_cast<char*>(ids.data()), ids.size() * sizeof(std::int32_t));
        for (const std::int32_t id : known) {
            if (std::find(ids.begin(), ids.end(), id) == ids.end())
                forget(id);
        }
        known = ids;
        sendTo(ids);
    }
    void report()
    {
        const Figures own = figures();
        tell(0, Frame::report, {reinterpret_cast<const char*>(&own), sizeof own});
    }
    // What has begun for the parent leaves; others get nothing from who shuts down.
    void stop()
    {
        stopping = true;
        sendTo({});
        fallSilentBut(0);
        report();
    }

    void wrong(std::int32_t from, const std::string& why, bool isLost) override
    {
        std::cerr << "sibling-demo: sibling " + intToString(messenger.ownId()) +
                         " has got from sibling " + intToString(from) + ": " + why + "\n"
                  << std::flush;
        ended = ended || (from == 0 && isLost);  // nobody could tell it to stop
    }
    void peerEnded(std::int32_t /*id*/) override { ended = true; }       // the parent
    void otherIsReady(io::Selectable* /*s*/) override { ended = true; }  // all have let it go
    void clockRang() override {}                                         // it is never set

    std::vector<std::int32_t> known;
    bool stopping = false;
    bool ended = false;
};

}  // namespace

int runChild(const Terms& agreed)
{
    platform::raiseDescriptorLimit();
    return Child(agreed).run();
}

}  // namespace siblings
