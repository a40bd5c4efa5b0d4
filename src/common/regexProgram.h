// What a pattern becomes: first a syntax tree, then a program of states.
//
//     pattern --parse--> Syntax --compile--> RegexProgram
//
// A program is an automaton without priorities, laid out so that the common step is a shift: the
// state behind a state that reads a byte has the next number. A state reads a byte, or is silent
// (jump, split, assertion), or is the last one, which is the match.
//
//     a(b|cd)*    0 read {a}   1 split 8   2 split 5   3 read {b}   4 jump 7
//                 5 read {c}   6 read {d}  7 split 2   8 match
//
// A set of states has one bit a state, so reading a byte is ((set & reading[byte]) << 1) for all
// states at once; what is left to follow one by one are the silent states. Bytes that no state
// tells apart share a class.
//
// There are no states for parentheses: their positions are worked out from the tree, for the
// match found, and cost nothing where nobody asks for them. Of a tree node's states, the first
// has a known number and the node behind starts where it ends; see Layout.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace regex {

class ByteSet {
public:
    bool has(std::size_t byte) const { return (words[byte / 64] >> byte % 64 & 1) != 0; }
    void add(std::size_t byte) { words[byte / 64] |= std::uint64_t{1} << byte % 64; }
    void remove(std::size_t byte) { words[byte / 64] &= ~(std::uint64_t{1} << byte % 64); }
    void add(const ByteSet& other)
    {
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] |= other.words[i];
    }
    void invert()
    {
        for (std::uint64_t& word : words)
            word = ~word;
    }
    unsigned count() const
    {
        unsigned sum = 0;
        for (const std::uint64_t word : words)
            sum += static_cast<unsigned>(std::popcount(word));
        return sum;
    }
    template <class Action>
    void forEach(Action action) const
    {
        for (std::size_t i = 0; i < words.size(); ++i) {
            for (std::uint64_t left = words[i]; left != 0; left &= left - 1)
                action(static_cast<std::uint8_t>(i * 64 + std::countr_zero(left)));
        }
    }
    bool operator==(const ByteSet&) const = default;

private:
    std::array<std::uint64_t, 4> words{};
};

inline constexpr std::uint32_t unbounded = std::numeric_limits<std::uint32_t>::max();
inline constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

// Patterns come from outside: beyond these they need too much memory, and get REG_ESPACE.
inline constexpr std::uint32_t mostStates = 20000;
inline constexpr std::uint32_t mostNodes = 2 * mostStates;
inline constexpr unsigned deepestNesting = 500;  // bounds every recursion over a tree
inline constexpr std::uint32_t mostRepetitions = 255;

// Ends parsing or compiling; the code is that of tv_regcomp.
struct Refusal {
    int code;
};

enum class Assertion : std::uint8_t { lineStart, lineEnd, wordStart, wordEnd };

// ---- Syntax --------------------------------------------------------------------------------

enum class NodeKind : std::uint8_t {
    empty,
    bytes,          // one byte of the set `value`
    assertion,      // `value` is an Assertion
    backReference,  // the text of the group `value` once more; the child is any byte
    group,          // the group `value`, counted from 1 by opening parentheses
    sequence,
    choice,
    repeat,  // the child `least` to `most` times
};

// Nodes refer to one another by their index in Syntax::nodes.
struct Node {
    NodeKind kind = NodeKind::empty;
    bool nullable = true;    // matches the empty text, wherever it stands
    bool hasGroups = false;  // it is a group or has one below it
    std::uint32_t value = 0;
    std::uint32_t least = 0;
    std::uint32_t most = 0;  // may be `unbounded`
    std::uint32_t firstChild = none;
    std::uint32_t nextSibling = none;
    std::uint32_t states = 0;   // of the program
    std::uint32_t longest = 0;  // bytes that it matches at most; may be `unbounded`
};

struct Syntax {
    std::vector<Node> nodes;
    std::vector<ByteSet> sets;  // all different
    std::uint32_t root = none;
    std::uint32_t groups = 0;
    bool hasBackReferences = false;

    const Node& operator[](std::uint32_t node) const { return nodes[node]; }
};

// Parses a pattern that has gone through the pre-pass. Throws Refusal at the first error.
Syntax parse(std::string_view pattern, int cflags);

// Reads a bracket expression; *at is behind its "[" and comes to lie behind its "]". The two word
// boundaries are not its business. Throws Refusal.
ByteSet parseBracket(std::string_view pattern, std::size_t* at, int cflags);

bool isWordByte(std::uint8_t byte);

// ---- Program -------------------------------------------------------------------------------

enum class StateKind : std::uint8_t { read, jump, split, assertion, match };

struct State {
    StateKind kind;
    std::uint32_t value;  // read: the set; jump: the next; split: the other next; an Assertion
};

// Where the states of a node lie. `first` is the node's first state.
namespace layout {

// States of the alternative, in front of it (a split) and behind it (a jump), but for the last.
inline constexpr std::uint32_t beforeAlternative = 1;
inline constexpr std::uint32_t behindAlternative = 1;

// A repetition is a row of copies of its child: X{2,4} is XX(X(X)?)?, X{2,} is X(X)+. The first
// state of the copy that the given turn uses, counted from 0.
inline std::uint32_t copy(const Syntax& syntax, const Node& repeat, std::uint32_t first,
                          std::uint32_t turn)
{
    const std::uint32_t size = syntax[repeat.firstChild].states;
    if (repeat.most == unbounded) {
        if (repeat.least == 0)
            return first + 1;
        return first + (turn < repeat.least ? turn : repeat.least - 1) * size;
    }
    if (turn < repeat.least)
        return first + turn * size;
    return first + repeat.least * size + (turn - repeat.least) * (size + 1) + 1;
}

}  // namespace layout

// What lies on one side of a gap between two bytes, as far as assertions tell it apart.
enum class Edge : std::uint8_t { plain, word, line };

struct Gap {
    Edge before, after;

    bool allows(Assertion assertion) const
    {
        switch (assertion) {
        case Assertion::lineStart:
            return before == Edge::line;
        case Assertion::lineEnd:
            return after == Edge::line;
        case Assertion::wordStart:
            return before != Edge::word && after == Edge::word;
        case Assertion::wordEnd:
            return before == Edge::word && after != Edge::word;
        }
        return false;
    }
};

// A part of the text to match, and what its ends count as.
struct Text {
    const std::uint8_t* begin;
    const std::uint8_t* end;
    Edge atBegin, atEnd;

    std::size_t size() const { return static_cast<std::size_t>(end - begin); }
};

struct Span {
    std::ptrdiff_t begin = -1;
    std::ptrdiff_t end = -1;

    bool operator==(const Span&) const = default;
};

// Where jumps and splits of one word of a set lead to, besides the state behind.
struct Jump {
    std::uint64_t from;
    std::uint32_t target;
};

// The table of regexSearch.cpp. Rows are numbered in multiples of their length.
struct DfaCache {
    std::vector<std::uint32_t> next;   // row, by row and class
    std::vector<std::uint64_t> sets;   // of each row
    std::vector<Edge> before;          // of each row
    std::vector<std::uint32_t> table;  // rows by hash, 0 where free; a power of two
    std::size_t rows = 0;
};

}  // namespace regex

struct RegexProgram {
    static constexpr std::int32_t magicNumber = 53829;

    std::int32_t magic = magicNumber;
    bool bad = false;  // the compiler has met a contradiction of its own; matches nothing
    int cflags = 0;

    regex::Syntax syntax;
    std::vector<regex::State> states;  // the last one is the match

    // Bytes by class, and of each class what assertions see of it.
    std::array<std::uint8_t, 256> classOf{};
    std::size_t classes = 1;
    std::array<regex::Edge, 256> edgeOf{};
    bool edgesMatter = false;  // some byte has an edge other than plain

    // Sets of states, each `words` long: of each class the states that read it; then the four
    // below.
    std::size_t words = 1;
    std::vector<std::uint64_t> masks;
    const std::uint64_t* readers(std::size_t byteClass) const { return &masks[byteClass * words]; }
    const std::uint64_t* silent() const { return &masks[classes * words]; }  // jumps and splits
    const std::uint64_t* splits() const { return silent() + words; }
    const std::uint64_t* asserting() const { return splits() + words; }
    const std::uint64_t* initial() const { return asserting() + words; }  // what `entry` leads to
    // The jumps of each word, from jumpsOf[word] up to jumpsOf[word + 1].
    std::vector<regex::Jump> jumps;
    std::vector<std::uint32_t> jumpsOf;

    // For the question whether there is a match at all. What may be missing at the start of a
    // match is left out of it: the text matches just as well without.
    bool matchesAlways = false;
    bool anchored = false;    // every match starts at the start of the text
    std::uint32_t entry = 0;  // the state to start with
    bool hasFirst = false;    // every match starts with a byte of `first`
    unsigned firstCount = 0;
    std::uint8_t firstByte = 0;             // one of them
    std::array<std::uint8_t, 256> first{};  // 1 for each of them
    std::string literal;                    // every match contains it, if it isn't empty...
    std::uint32_t literalLead = 0;  // ...with at most so many bytes in front, or `unbounded`

    regex::DfaCache cache;  // grows from one match to the next

    std::uint32_t matchState() const { return static_cast<std::uint32_t>(states.size() - 1); }
    regex::Edge edge(std::uint8_t byte) const { return edgeOf[classOf[byte]]; }
    regex::Gap gapAt(const regex::Text& text, std::size_t place) const
    {
        return {place == 0 ? text.atBegin : edge(text.begin[place - 1]),
                place == text.size() ? text.atEnd : edge(text.begin[place])};
    }
};

namespace regex {

// Throws Refusal, and std::bad_alloc.
void compile(Syntax syntax, int cflags, RegexProgram* program);

// Whether the text has a match. Without an end, it ends at its first zero byte, and isn't read
// farther than needed.
bool hasMatch(RegexProgram& program, const Text& text);

// The leftmost longest match: fills `spans`, the whole match first, then groups, as offsets in
// the text. False if there is none.
bool findMatch(RegexProgram& program, const Text& text, std::vector<Span>* spans);

// The same for a program with back-references. Throws std::bad_alloc when it gets too much work.
bool findMatchWithReferences(RegexProgram& program, const Text& text, std::vector<Span>* spans);

}  // namespace regex
