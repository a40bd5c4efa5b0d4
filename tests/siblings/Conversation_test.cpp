// What a child makes of frames that are not what they should be.
#include "io/Selector.h"
#include "io/Timer.h"
#include "io/sibling/Parent.h"
#include "siblings/Conversation.h"

#include <gmock/gmock.h>

#include <tuple>

namespace {

using siblings::Frame;

TEST(Conversation, FindsWhatIsWrong)
{
    const std::tuple<Frame, const char*, const char*> cases[] = {
        {{Frame::message, 2, 1}, "\1\1", ""},
        {{Frame::message, 2, 2}, "\2\2", "sibling 1 has got from sibling 0: message 2 out of turn"},
        {{Frame::message, 2, 1}, "\1\2", "sibling 0: message 1 with other bytes\n"},
        {{Frame::message, 3, 1}, "\1\1\1", "sibling 0: what is no frame\n"},
        {{Frame::peers, 1 << 20, 0}, "", "sibling 0: what is no frame\n"},
        {{Frame::taken, 0, 1}, "", "sibling 0: what is no frame\n"},
    };
    for (const auto& [head, body, text] : cases) {
        testing::internal::CaptureStderr();
        int code = -1;
        io::Timer ended;
        io::SiblingParent parent({.children = 1, .parentArea = 4096, .childArea = 4096});
        parent.childEnded = [&](std::int32_t, platform::ExitStatus status) {
            code = status.signalled ? -1 : status.code;
            ended.when = Time::now();
        };
        io::Sibling child = parent.sibling(parent.start(SIBLING_DEMO, {"--as-child", "2", "9"}));
        const Frame heads[] = {head, {Frame::stop, 0, 0}};
        const std::string bytes = std::string(reinterpret_cast<const char*>(heads), sizeof heads)
                                      .insert(sizeof head, body);
        char* space = nullptr;
        child.ostream().writeBegin(&space);
        child.ostream().writeCommit(bytes.copy(space, bytes.size()));
        io::Selector<bool> selector;
        selector.add(&parent.some_sibling, true);
        selector.add(&ended, false);
        while (selector.poll().second) {
            try {
                child.istream().readCommit(child.istream().readBegin(&space));
            } catch (const io::EEndOfStream&) {
                child.dropNullMessage();
            }
        }
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(*text ? told.find(text) != std::string::npos : told.empty()) << told;
        EXPECT_EQ(code, *text ? 1 : 0) << text;
    }
}

}  // namespace
