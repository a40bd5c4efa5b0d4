// A sibling for the tests to start: writes to all peers of which it is told, and reads what comes,
// until it is told to stop or its parent ends.
//     sibling_peer child SEED LARGEST    a child; LARGEST: bytes of a message
//     sibling_peer parent                a parent with three children, which it lets write

#include "io/Selector.h"
#include "io/Timer.h"
#include "io/sibling/Child.h"
#include "io/sibling/Parent.h"
#include "tests/io/SiblingTraffic.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <span>

namespace {

using namespace traffic;

std::vector<std::int32_t> idsIn(const std::string& body)
{
    std::vector<std::int32_t> ids(body.size() / sizeof(std::int32_t));
    body.copy(reinterpret_cast<char*>(ids.data()), body.size());
    return ids;
}

enum Source : std::int32_t {
    anySibling = -1,
    shutdownEnd = -2,
    timer = -3
};  // else: a peer's room

int runChild(std::uint32_t seed, std::uint32_t largest)
{
    io::SiblingChild child;
    Traffic traffic(&child, seed);
    io::Selector<std::int32_t> selector;
    std::vector<io::Sibling> peers;
    io::Timer tick;
    tick.when = Time::now();
    selector.add(&child.some_sibling, anySibling);
    selector.add(&child.shutdown_end, shutdownEnd);
    selector.add(&tick, timer);
    bool stops = false;
    for (;;) {
        const std::int32_t source = selector.poll().second;
        if (source >= 0) {
            traffic.sendFilling(source, largest);
        } else if (source == shutdownEnd) {
            return 0;
        } else if (source == timer) {
            tick.when = Time::now() + Time::millisecond + Time::millisecond;
            if (stops && traffic.areaIsFree())
                child.shutDown();
        } else {
            const Received got = traffic.receive();
            if (got.isEnd)
                return 0;
            if (!got.isWhole || got.kind == Kind::filling)
                continue;
            stops = stops || got.kind == Kind::stop;
            for (const io::Sibling& peer : peers)
                selector.remove(&peer.ostream());
            peers.clear();
            for (const std::int32_t id : idsIn(got.body)) {
                peers.push_back(child.sibling(id));
                selector.add(&peers.back().ostream(), id);
            }
        }
    }
}

int runParent(const char* self)
{
    io::SiblingParent parent({.children = 3, .parentArea = 4096, .childArea = 65536});
    Traffic traffic(&parent, 1);
    io::Selector<int> selector;
    selector.add(&parent.some_sibling, 0);
    for (std::int32_t other = 0; other != 3; ++other) {  // the second to the first, and so on
        const std::int32_t id = parent.start(self, {"child", std::to_string(other), "100"});
        traffic.send(id, Kind::peers, {reinterpret_cast<const char*>(&other), sizeof other});
    }
    std::uint64_t count = 0;
    for (;;) {
        selector.poll();
        traffic.receive();
        if (++count == 100)
            std::cout << "running" << std::endl;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const std::span arguments(argv, static_cast<std::size_t>(argc));
    try {
        if (argc == 4 && arguments[1] == std::string("child"))
            return runChild(static_cast<std::uint32_t>(std::strtoul(arguments[2], nullptr, 10)),
                            static_cast<std::uint32_t>(std::strtoul(arguments[3], nullptr, 10)));
        if (argc == 2 && arguments[1] == std::string("parent"))
            return runParent(arguments[0]);
        std::cerr << "sibling_peer child SEED LARGEST | parent\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
    } catch (const error::Exception& e) {
        std::cerr << e.text() << '\n';
    }
    return 3;
}
