// Regular expressions against the C library's, in the same run.
//
// `match` is a match with a compiled expression, `whole` compiles, matches once and releases, as a
// check does. Both sides are asked for a yes or no, without positions, and have to agree.

#include "RegexPeer.h"
#include "common/regex.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

class RegexOwn {
public:
    explicit RegexOwn(const std::string& pattern)
    {
        if (tv_regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != REG_OKAY)
            throw std::invalid_argument(pattern);
    }
    ~RegexOwn() { tv_regfree(&regex); }
    RegexOwn(const RegexOwn&) = delete;
    RegexOwn& operator=(const RegexOwn&) = delete;

    bool matches(const std::string& text) const
    {
        return tv_regexec(&regex, text.c_str(), 0, nullptr, 0) == REG_OKAY;
    }

private:
    tv_regex_t regex;
};

// A page as a web server sends it, with dates, links and numbers; its last line is a status.
std::string makeReply(std::size_t size)
{
    const std::string head = "HTTP/1.1 200 OK\r\n"
                             "Date: Mon, 23 Nov 2026 09:41:07 GMT\r\n"
                             "Content-Type: text/html; charset=utf-8\r\n"
                             "Cache-Control: no-cache, max-age=3600\r\n\r\n";
    const std::string tail = "<p>Service is up since 2026-may, queue xy.</p>\n</html>\n";
    const std::string words[] = {"the",  "report", "of",    "12",         "hosts",  "and",
                                 "340 ", "links",  "in",    "<b>all</b>", "rooms",  "was",
                                 "sent", "at",     "07:15", "to",         "desk.\n"};
    std::string reply = head;
    unsigned state = 1;
    while (reply.size() + tail.size() + 16 < size) {
        state = state * 1103515245 + 12345;
        reply += words[(state >> 16) % std::size(words)] + " ";
    }
    return reply + tail;
}

template <class Regex>
void match(benchmark::State& state, const std::string& pattern, const std::string& text)
{
    const Regex regex(pattern);
    for (auto _ : state)  // NOLINT(clang-analyzer-deadcode.DeadStores)
        benchmark::DoNotOptimize(regex.matches(text));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

template <class Regex>
void whole(benchmark::State& state, const std::string& pattern, const std::string& text)
{
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        const Regex regex(pattern);
        benchmark::DoNotOptimize(regex.matches(text));
    }
}

void add(const std::string& textName, const std::string& text, const std::string& pattern,
         bool withPeer)
{
    if (withPeer && RegexOwn(pattern).matches(text) != RegexPeer(pattern).matches(text)) {
        std::cerr << pattern << ": the matchers disagree on " << textName << '\n';
        std::exit(1);
    }
    const std::string name = "/" + textName + "/" + pattern;
    const auto addOne = [&](const std::string& prefix, auto function) {
        benchmark::RegisterBenchmark((prefix + name).c_str(), function, pattern, text);
    };
    addOne("match_own", match<RegexOwn>);
    if (withPeer)
        addOne("match_peer", match<RegexPeer>);
    addOne("whole_own", whole<RegexOwn>);
    if (withPeer)
        addOne("whole_peer", whole<RegexPeer>);
}

}  // namespace

int main(int argc, char** argv)
{
    for (const char* status : {"200", "404"})
        add(status, status, "^2..", true);
    for (const std::size_t kibibytes : {4, 1024}) {
        const std::string name = std::to_string(kibibytes) + "KiB";
        const std::string reply = makeReply(kibibytes * 1024);
        for (const char* pattern :
             {"^2..", "Service is [a-z]+", "Service is (down|out of order)", "Fatal error: [0-9]+",
              "error", "error|warning|failure", "[0-9]+-[a-z]+", "[0-9]{4}-[a-z]+",
              "[[:upper:]][a-z]+ is [a-z]+ since", ".*x.*y", ".*x.*z",
              "(Service|System) (is|was) (up|down)", "[0-9]{3} [[:upper:]]+$", "q[^a-z]",
              "\\(.*\\)"})
            add(name, reply, pattern, true);
        const std::string line(kibibytes * 1024, 'a');
        for (const char* pattern : {"(a|a)*(a|a)*b", "(a|aa)*b", "(a|aa)*[bc]"})
            add(name + "_of_a", line, pattern, false);
    }
    for (const char* pattern : {"(a|a)*(a|a)*b", "(a|aa)*b", "(a|aa)*[bc]"})
        add("64_of_a", std::string(64, 'a'), pattern, true);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
