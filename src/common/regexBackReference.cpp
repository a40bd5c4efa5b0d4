// Matching with back-references.
//
// What a back-reference matches depends on the way that led to it, so sets of states don't do.
// Here every node gives, for a way that has come to its start, all the ways on to its end, the
// preferred ones first: that is the longest first, and among equally long ones those whose first
// part is longer. Ways that agree in place and groups go on alike, and the first one stands for
// them.
//
// The number of ways can grow with a power of the text. The work is bounded, and beyond the bound
// the match fails for want of memory, as it nearly would.

#include "common/regex.h"
#include "common/regexProgram.h"

#include <algorithm>
#include <cctype>
#include <new>
#include <set>

namespace regex {
namespace {

constexpr std::size_t mostWork = std::size_t{1} << 20;  // ways, over a whole match
constexpr std::size_t mostWays = std::size_t{1} << 16;  // at one time, of one node

struct Way {
    std::size_t at;
    std::vector<Span> groups;

    // Any order will do.
    bool operator<(const Way& other) const
    {
        return at != other.at
                   ? at < other.at
                   : std::lexicographical_compare(
                         groups.begin(), groups.end(), other.groups.begin(), other.groups.end(),
                         [](const Span& a, const Span& b) {
                             return a.begin != b.begin ? a.begin < b.begin : a.end < b.end;
                         });
    }
};

using Ways = std::vector<Way>;

class Tracer {
public:
    Tracer(const RegexProgram& theProgram, const Text& theText)
        : program(theProgram), syntax(theProgram.syntax), text(theText)
    {}

    bool run(std::vector<Span>* spans)
    {
        for (std::size_t begin = 0; begin <= text.size(); ++begin) {
            Ways ways;
            follow(syntax.root, {begin, std::vector<Span>(syntax.groups + 1)}, &ways);
            if (ways.empty())
                continue;
            *spans = ways.front().groups;
            (*spans)[0] = span(begin, ways.front().at);
            return true;
        }
        return false;
    }

private:
    static Span span(std::size_t begin, std::size_t end)
    {
        return {static_cast<std::ptrdiff_t>(begin), static_cast<std::ptrdiff_t>(end)};
    }

    // Adds the ways on from `from`. Recursion goes as deep as the tree.
    void follow(std::uint32_t index, const Way& from, Ways* out)
    {
        const Node& node = syntax[index];
        switch (node.kind) {
        case NodeKind::empty:
            add(from, out);
            break;
        case NodeKind::bytes:
            if (from.at < text.size() && syntax.sets[node.value].has(text.begin[from.at]))
                add({from.at + 1, from.groups}, out);
            break;
        case NodeKind::assertion:
            if (program.gapAt(text, from.at).allows(static_cast<Assertion>(node.value)))
                add(from, out);
            break;
        case NodeKind::backReference:
            followReference(from.groups[node.value], from, out);
            break;
        case NodeKind::group: {
            Ways inside;
            follow(node.firstChild, from, &inside);
            for (Way& way : inside) {
                way.groups[node.value] = span(from.at, way.at);
                add(std::move(way), out);
            }
            break;
        }
        case NodeKind::sequence:
            followSequence(node, from, out);
            break;
        case NodeKind::choice:
            break;  // the basic syntax has none
        case NodeKind::repeat:
            followRepeat(node, from, out);
            break;
        }
    }

    void followReference(const Span& group, const Way& from, Ways* out)
    {
        const auto length = static_cast<std::size_t>(group.end - group.begin);
        if (group.begin < 0 || length > text.size() - from.at)
            return;
        const bool anyCase = (program.cflags & REG_ICASE) != 0;
        const std::uint8_t* const here = text.begin + from.at;
        if (std::equal(here, here + length, text.begin + group.begin, [&](int a, int b) {
                return a == b || (anyCase && std::tolower(a) == std::tolower(b));
            }))
            add({from.at + length, from.groups}, out);
    }

    void followSequence(const Node& node, const Way& from, Ways* out)
    {
        Ways ways{from};
        for (std::uint32_t c = node.firstChild; c != none; c = syntax[c].nextSibling) {
            Ways next;
            for (const Way& way : ways)
                follow(c, way, &next);
            dropDoubles(&next);
            ways = std::move(next);
        }
        sortByLength(&ways);
        for (Way& way : ways)
            add(std::move(way), out);
    }

    void followRepeat(const Node& node, const Way& from, Ways* out)
    {
        struct Turn {
            Way way;
            std::uint32_t number;  // of turns so far; beyond `least` without an upper bound, that
        };
        const auto isBefore = [](const Turn& a, const Turn& b) {
            return a.number != b.number ? a.number < b.number : a.way < b.way;
        };
        std::set<Turn, decltype(isBefore)> seen(isBefore);
        std::vector<Turn> open{{from, 0}};
        Ways found;
        while (!open.empty()) {
            const Turn turn = std::move(open.back());
            open.pop_back();
            if (!seen.insert(turn).second)
                continue;
            Ways next;
            if (turn.number < node.most) {
                Way cleared = turn.way;
                clearGroups(node.firstChild, &cleared);
                follow(node.firstChild, cleared, &next);
            }
            const std::uint32_t number = node.most == unbounded
                                             ? std::min(turn.number + 1, std::max(node.least, 1U))
                                             : turn.number + 1;
            // Turns that match nothing are for those that are missing, or for a single one.
            for (const Way& way : next) {
                if (way.at == turn.way.at && turn.number == 0 && node.least == 0)
                    add(way, &found);
            }
            if (turn.number >= node.least)
                add(turn.way, &found);
            for (auto way = next.rbegin(); way != next.rend(); ++way) {
                if (way->at != turn.way.at || turn.number < node.least)
                    open.push_back({std::move(*way), number});
            }
        }
        dropDoubles(&found);
        sortByLength(&found);
        for (Way& way : found)
            add(std::move(way), out);
    }

    // A turn knows nothing of the groups of the one before.
    void clearGroups(std::uint32_t index, Way* way) const
    {
        const Node& node = syntax[index];
        if (!node.hasGroups)
            return;
        if (node.kind == NodeKind::group)
            way->groups[node.value] = {};
        for (std::uint32_t c = node.firstChild; c != none; c = syntax[c].nextSibling)
            clearGroups(c, way);
    }

    void add(Way way, Ways* out)
    {
        if (++work > mostWork || out->size() >= mostWays)
            throw std::bad_alloc();
        out->push_back(std::move(way));
    }

    static void dropDoubles(Ways* ways)
    {
        if (ways->size() < 2)
            return;
        std::set<Way> seen;
        std::erase_if(*ways, [&](const Way& way) { return !seen.insert(way).second; });
    }

    static void sortByLength(Ways* ways)
    {
        std::stable_sort(ways->begin(), ways->end(),
                         [](const Way& a, const Way& b) { return a.at > b.at; });
    }

    const RegexProgram& program;
    const Syntax& syntax;
    const Text& text;
    std::size_t work = 0;
};

}  // namespace

bool findMatchWithReferences(RegexProgram& program, const Text& text, std::vector<Span>* spans)
{
    // The program takes a back-reference for any text, so it can only be too generous.
    return hasMatch(program, text) && Tracer(program, text).run(spans);
}

}  // namespace regex
