#include "checks/dns.h"

#include "checks/DNSNetCheck.h"
#include "tests/common/outcome.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace std::string_literals;

const std::string overrun = "Read beyond end of DNS datagram";
const std::string x33(33, 'x'), x63(63, 'x');  // the lengths of labels are "!" and "?"

// Runs the action on a copy that ends where its memory does: a sanitizer sees a byte too far.
template <class Action>
std::string onCopy(const std::string& bytes, Action action)
{
    const auto copy = std::make_unique<char[]>(bytes.size());
    bytes.copy(copy.get(), bytes.size());
    return outcome<EDnsMessage>([&] { return action(copy.get(), copy.get() + bytes.size()); });
}

std::string encoded(const std::string& name, std::size_t room)
{
    return onCopy(std::string(room, '-'), [&](char* begin, char* end) {
        return std::string(begin, dnsEncodeQuestion(begin, end, name, 0x0102, 0x0304));
    });
}

TEST(Dns, EncodesAQuestion)
{
    const std::string tail = "\0\1\2\3\4"s;
    const std::string longest = x63 + "." + x63 + "." + x63 + "." + x33;
    const std::string cases[][2] = {
        {"a.bc.d", "\1a\2bc\1d" + tail},
        {"..a..bc.d.", "\1a\2bc\1d" + tail},
        {"", tail},
        {longest, "?" + x63 + "?" + x63 + "?" + x63 + "!" + x33 + tail},
    };
    for (const auto& [name, bytes] : cases) {
        EXPECT_EQ(encoded(name, bytes.size()), bytes);
        for (std::size_t room = 0; room < bytes.size(); ++room)
            EXPECT_EQ(encoded(name, room), "Not enough buffer space");
    }
    EXPECT_EQ(encoded(longest + ".", 300), "DNS name too long");
    EXPECT_EQ(encoded(x63 + "x", 300), "DNS label too long");
}

TEST(Dns, WalksNames)
{
    std::string chain, wire, text;
    for (char i = 1; i <= 64; ++i) {
        chain += {'\xC0', static_cast<char>(2 * i)};
        wire += "?" + x63;
        text += x63 + ".";
    }
    const std::string cases[][3] = {
        // What is decoded, with the offset behind it; the offset behind it as a question.
        {"\0..."s, " 1", overrun},
        {"\3A.\xFF\0...."s, "A.\xFF. 5", "9"},
        {"\1a\x40\xBF\1b\0...."s, "a.b. 7", "11"},
        {"\1b\xC0\x08....\1a\0"s, "b.a. 4", "8"},
        {"\xC1\2" + std::string(256, '.') + "\1x\0"s, "x. 2", "6"},
        {"\xC0\2\0"s, " 2", overrun},
        {"\xC0\2"s, overrun, overrun},
        {"\xC0\0...."s, overrun, "6"},
        {chain + "\1x\0"s, "x. 2", "6"},
        {chain + "\xC0\x82\1x\0"s, overrun, "6"},
        {wire + "\0...."s, text + " 4097", "4101"},
        {wire + "\1x\0...."s, overrun, "4103"},
    };
    const auto decode = [](char* begin, char* end) {
        std::string name = "not empty";
        const char* behind = dnsDecodeName(name, begin, begin, end);
        return name + " " + std::to_string(behind - begin);
    };
    const auto skip = [](char* begin, char* end) {
        return std::to_string(dnsSkipQuestion(begin, begin, end) - begin);
    };
    for (const auto& [bytes, name, skipped] : cases) {
        EXPECT_EQ(onCopy(bytes, decode), name);
        EXPECT_EQ(onCopy(bytes, skip), skipped);
    }
}

TEST(Dns, DecodesRecords)
{
    const auto decode = [](char* begin, char* end) {
        DnsRecord r;
        const char* behind = dnsDecodeRecord(r, begin, begin, end);
        const std::uint32_t sum = r.type + 1000 * r.rclass + r.ttl;
        return r.name + std::to_string(sum) + r.data + std::to_string(behind - begin);
    };
    const std::string rest = "\0\xFF\xFD\xFE\xFB\xFB"s;  // class 255, TTL 4261346299
    for (char type = 0; type < 20; ++type) {             // a name goes on where the data ends
        const bool isName = "\2\3\4\5\7\x08\x09\x0C"s.find(type) != std::string::npos;
        EXPECT_EQ(onCopy("\1a\0\0"s + type + rest + "\0\1\1x\0"s, decode),
                  "a." + std::to_string(4261601299 + type) + (isName ? "x." : "\1") + "14");
    }
    const std::string most(1023, '\0');
    EXPECT_EQ(onCopy("\0\1\5"s + rest + "\3\xFF" + most, decode), "4261601560" + most + "1034");
    EXPECT_EQ(onCopy("\0\1\5"s + rest + "\4\0"s + most + ".", decode), overrun);
}

TEST(Dns, AReplyCutShortIsABadOne)
{
    const std::string reply = "\0\x75\x80\0\0\1\0\1\0\1\0\1\1a\0\0\1\0\1"
                              "\xC0\x0C\0\1\0\1\0\0\0\0\0\4\1\2\3\4"
                              "\xC0\x0C\0\2\0\1\0\0\0\0\0\2\xC0\x0C\0\0\x29\5\xC0\0\0\0\0\0\1a"s;
    const auto judge = [](char* begin, char* end) {
        return judgeDnsReply({begin, end}, "a", "1.2.3.4").line;
    };
    EXPECT_EQ(onCopy(reply, judge), "");
    for (std::size_t size = 0; size < reply.size(); ++size)
        EXPECT_EQ(onCopy(reply.substr(0, size), judge),
                  size < 12 ? "Bad reply from dns server (length)" : overrun);
}

}  // namespace
