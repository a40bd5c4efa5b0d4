// Datagrams from a hostile name server.
//
// The input is the name that was asked for, and a datagram:
//     0      length of the name
//     1      the name
//     1 + n  the datagram
// The name is written as a question, which the readers must take for what it is. The readers start
// at the first bytes of the datagram, then it is judged as a reply. The datagram lies in memory of
// its exact size.

#include "checks/DNSNetCheck.h"
#include "checks/dns.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t bufferSize = 1536;  // of the check
constexpr std::size_t starts = 32;        // in the datagram, for readers
constexpr std::size_t longestName = 4096;

void require(bool holds, const char* what)
{
    if (!holds) {
        std::cerr << what << '\n';
        std::abort();
    }
}

template <class Read>
const char* positionBehind(const Read& read)
{
    try {
        return read();
    } catch (const EDnsMessage& e) {
        require(e.text() == "Read beyond end of DNS datagram", "another failure of a reader");
        return nullptr;
    }
}

// With single dots between the labels, and behind the last one.
std::string canonical(std::string_view name)
{
    std::string text;
    for (const char character : name) {
        if (character != '.' || (!text.empty() && text.back() != '.'))
            text += character;
    }
    if (!text.empty() && text.back() != '.')
        text += '.';
    return text;
}

void askFor(std::string_view name)
{
    std::array<char, 300> space;
    char* end = nullptr;
    try {
        end = dnsEncodeQuestion(space.data(), space.data() + space.size(), name, 1, 1);
    } catch (const EDnsMessage&) {
        return;
    }
    const auto exact = std::make_unique<char[]>(static_cast<std::size_t>(end - space.data()));
    end = std::copy(space.data(), end, exact.get());
    std::string decoded;
    const char* const behind =
        positionBehind([&] { return dnsDecodeName(decoded, exact.get(), exact.get(), end); });
    require(behind == end - 4 && decoded == canonical(name), "a question doesn't give its name");
    require(dnsSkipQuestion(exact.get(), exact.get(), end) == end, "a question isn't skipped");
}

void readFrom(const char* message, const char* position, const char* end)
{
    std::string name;
    const char* const named =
        positionBehind([&] { return dnsDecodeName(name, message, position, end); });
    const char* const skipped =
        positionBehind([&] { return dnsSkipQuestion(message, position, end); });
    require(name.size() <= longestName, "a name grows without a bound");
    if (named != nullptr) {
        require(named > position && named <= end, "a name ends outside the datagram");
        require(skipped == (end - named < 4 ? nullptr : named + 4), "the walks of a name differ");
    }

    DnsRecord record;
    const char* const behind =
        positionBehind([&] { return dnsDecodeRecord(record, message, position, end); });
    if (behind != nullptr) {
        require(named != nullptr && record.name == name, "a record has another name");
        require(behind >= named + 10 && behind <= end, "a record ends outside the datagram");
        require(record.data.size() <= longestName, "data grow without a bound");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    if (rest.empty())
        return 0;
    const std::string name(rest.substr(1, data[0]));
    rest.remove_prefix(1 + name.size());
    rest = rest.substr(0, bufferSize);
    askFor(name);

    const auto datagram = std::make_unique<char[]>(rest.size());
    const char* const message = datagram.get();
    const char* const end = std::copy(rest.begin(), rest.end(), datagram.get());
    for (std::size_t start = 0; start < std::min(starts, rest.size()); ++start)
        readFrom(message, message + start, end);

    const DnsJudgement any = judgeDnsReply({message, rest.size()}, name, "");
    const DnsJudgement one = judgeDnsReply({message, rest.size()}, name, "192.0.2.1");
    const bool isAnswer = any.kind == DnsJudgement::Kind::answer;
    require(any.line.empty() == isAnswer, "a judgement without its line");
    require(isAnswer ? one.line.empty() || one.line == "Bad reply from dns server (tokens)"
                     : one.kind == any.kind && one.line == any.line,
            "the expected addresses decide too early");
    return 0;
}
