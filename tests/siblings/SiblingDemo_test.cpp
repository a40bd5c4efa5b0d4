// sibling-demo, as people run it: what it prints while its children go on, end and are killed.
#include "tests/support/Process.h"

#include <gmock/gmock.h>

#include <sstream>
#include <tuple>
#include <utility>

namespace {

using testing::HasSubstr;

class Demo : public support::Process {
public:
    using Process::Process;
    // Takes lines up to the first that begins so, and gives what it has behind that.
    std::string line(const std::string& start)
    {
        const support::Deadline deadline = support::usualLimit();
        for (std::string found;; passed += found) {
            while (text.find('\n') == std::string::npos)
                pump(deadline, start);
            found = text.substr(0, text.find('\n') + 1);
            text.erase(0, found.size());
            if (found.starts_with(start))
                return found.substr(start.size());
        }
    }
    // Takes tables until each of these has sent and received something.
    void traffic(const std::vector<std::string>& names)
    {
        passed.clear();
        for (const std::string& name : names) {
            for (double sent = 0, received = 0; sent == 0 || received == 0;)
                std::istringstream(line("  " + name + " ")) >> sent >> received >> received;
        }
    }
    std::string passed;

private:
    void take(std::string* bytes) override { text += std::exchange(*bytes, {}); }
    std::string text;
};

TEST(SiblingDemo, GoesOnWhileChildrenComeAndGo)
{
    for (const char* const size : {"300", "9000"}) {  // the second go in pieces
        Demo demo({.program = SIBLING_DEMO,
                   .arguments = {"--children=3", "--size", size, "--area=4096", "--interval=.05"}});
        const int pid = std::stoi(demo.line("sibling 3 was started, process "));
        demo.traffic({"parent", "sibling 1", "sibling 2", "sibling 3"});
        demo.sendBytes("kill 2\n");
        demo.line("sibling 2 was killed (SIGKILL)\n");
        demo.traffic({"parent", "sibling 1", "sibling 3"});
        EXPECT_THAT(demo.passed, Not(HasSubstr("sibling 2")));
        demo.sendBytes(" kill  2\r\nkill 2x\nfly\x1b\n\nstart\n");
        demo.line("there is no sibling 2\n");
        demo.line("'2x' is not the number of a child\n");
        demo.line("'fly\\x1b' is no command; there are kill ID, stop ID, start, quit\n");
        demo.traffic({"sibling 4", "sibling 4", "sibling 4"});  // by now with everybody
        demo.sendBytes("stop 1\nstop 1\n");
        demo.line("sibling 1 is ending already\n");
        demo.line("sibling 1 has ended\n");
        demo.closeInput();
        ::kill(pid, SIGKILL);
        demo.line("sibling 3 was killed (SIGKILL)\n");
        demo.traffic({"parent", "sibling 4"});
        demo.signal(SIGTERM);
        demo.line("children: 2 ended in order, 1 killed on request, 1 failed\n");
        const support::ProcessEnd end = demo.waitForEnd();
        EXPECT_TRUE(end.code == 1 && end.errors.empty()) << end.code << end.errors;
    }
}

TEST(SiblingDemo, TakesItsChildrenWithIt)
{
    Demo demo({.program = SIBLING_DEMO});
    demo.traffic({"sibling 1", "sibling 4"});
    demo.signal(SIGKILL);
    demo.waitForEnd();  // the children have its standard error, too
}

TEST(SiblingDemo, EndsWithACode)
{
    const std::tuple<std::vector<std::string>, const char*, int, const char*> cases[] = {
        {{"--help"}, "", 0, "kill ID   kills a child"},
        {{"--children=1"}, "quit", 0, "all in order and whole\nchildren: 1 ended in order, 0"},
        {{"--children=1", "--duration=.1"}, "", 0, "children: 1 ended in order, 0 killed"},
        {{"--children=1", "--kill-after=.1"}, "", 0, "no child is left, and no command can"},
        {{"--children=0"}, "", 3, "'0' is no number of children from 1 to 250\nTry "},
        {{"--size=0x10"}, "", 3, "--size: '0x10' is no number of bytes from 1 to 1073741824\n"},
        {{"--interval=.001"}, "", 3, "'.001' is no number of seconds from 0.01 to 1000000\n"},
        {{"--area=2000000000"}, "", 3, "9 areas of 2000000000 bytes, for the parent, 4 chil"},
        {{"--as-child", "10", "1"}, "", 2, "sibling-demo: Descriptor 3 leads to no parent: "},
    };
    for (const auto& [arguments, input, code, part] : cases) {
        support::Process demo({.program = SIBLING_DEMO, .arguments = arguments});
        demo.sendBytes(input);
        demo.closeInput();
        const support::ProcessEnd end = demo.waitForEnd();
        EXPECT_EQ(end.code, code) << part << end.errors;
        EXPECT_THAT(end.output + end.errors, HasSubstr(part));
    }
}

}  // namespace
