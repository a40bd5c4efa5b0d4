// Patterns to syntax trees.
//
// Both grammars of POSIX XBD 9 are read by recursive descent, a byte at a time and never back. In
// the extended one
//     choice   = sequence *("|" sequence)
//     sequence = 1*(atom [repetition])
// and in the basic one a sequence is all there is. Where POSIX leaves a case open, it is an error
// or the plainest reading:
//     - a repetition behind a repetition, behind "^", or behind nothing is REG_BADRPT; in the basic
//       grammar a "*" in such a place at the start is literal;
//     - "{" that no digit follows is literal in the extended grammar;
//     - "^" and "$" are anchors at the ends of a basic "\(...\)", too;
//     - a backslash before any other byte makes it literal.
//
// The tree comes with what the compiler and the matchers ask of it: numbers of states, whether a
// node can match nothing, how long its match can get.

#include "common/regex.h"
#include "common/regexProgram.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace regex {
namespace {

constexpr std::string_view wordStart = "[:<:]]";
constexpr std::string_view wordEnd = "[:>:]]";

std::uint32_t addLengths(std::uint32_t a, std::uint32_t b)
{
    return a == unbounded || b == unbounded || a + b < a ? unbounded : a + b;
}

std::uint32_t multiplyLengths(std::uint32_t length, std::uint32_t times)
{
    if (length == 0 || times == 0)
        return 0;
    const std::uint64_t product = std::uint64_t{length} * times;
    return length == unbounded || times == unbounded || product >= unbounded
               ? unbounded
               : static_cast<std::uint32_t>(product);
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

class Parser {
public:
    Parser(std::string_view thePattern, int flags)
        : pattern(thePattern), cflags(flags), extended((flags & REG_EXTENDED) != 0)
    {}

    Syntax run()
    {
        if (pattern.empty())
            throw Refusal{REG_EMPTY};
        syntax.nodes.reserve(std::min<std::size_t>(pattern.size() + 2, mostNodes));
        if ((cflags & REG_NOSPEC) != 0)
            syntax.root = readLiterals();
        else if (extended)
            syntax.root = readChoice();
        else
            syntax.root = readBasicSequence();
        // The match has a state, too.
        if (syntax[syntax.root].states >= mostStates)
            throw Refusal{REG_ESPACE};
        return std::move(syntax);
    }

private:
    // ---- Reading ---------------------------------------------------------------------------

    bool atEnd() const { return at == pattern.size(); }
    bool startsWith(std::string_view text) const { return pattern.substr(at).starts_with(text); }
    bool startsWith(char c) const { return at < pattern.size() && pattern[at] == c; }
    bool take(std::string_view text)
    {
        if (!startsWith(text))
            return false;
        at += text.size();
        return true;
    }

    // ---- Building --------------------------------------------------------------------------

    std::uint32_t add(const Node& node)
    {
        if (syntax.nodes.size() >= mostNodes || node.states > mostStates)
            throw Refusal{REG_ESPACE};
        syntax.nodes.push_back(node);
        return static_cast<std::uint32_t>(syntax.nodes.size() - 1);
    }

    std::uint32_t addEmpty() { return add({.states = 1}); }

    std::uint32_t addAssertion(Assertion assertion)
    {
        return add({.kind = NodeKind::assertion,
                    .nullable = false,
                    .value = static_cast<std::uint32_t>(assertion),
                    .states = 1});
    }

    std::uint32_t addBytes(const ByteSet& set)
    {
        const auto known = std::find(syntax.sets.begin(), syntax.sets.end(), set);
        const auto number = static_cast<std::uint32_t>(known - syntax.sets.begin());
        if (known == syntax.sets.end())
            syntax.sets.push_back(set);
        return add({.kind = NodeKind::bytes,
                    .nullable = false,
                    .value = number,
                    .states = 1,
                    .longest = 1});
    }

    std::uint32_t addLiteral(char c)
    {
        const auto byte = static_cast<std::uint8_t>(c);
        ByteSet set;
        set.add(byte);
        if ((cflags & REG_ICASE) != 0) {
            set.add(static_cast<std::uint8_t>(std::tolower(byte)));
            set.add(static_cast<std::uint8_t>(std::toupper(byte)));
        }
        return addBytes(set);
    }

    std::uint32_t addAnyByte()
    {
        ByteSet set;
        set.invert();
        if ((cflags & REG_NEWLINE) != 0)
            set.remove('\n');
        return addBytes(set);
    }

    std::uint32_t addGroup(std::uint32_t number, std::uint32_t child)
    {
        Node node = syntax[child];
        node.kind = NodeKind::group;
        node.hasGroups = true;
        node.value = number;
        node.firstChild = child;
        node.nextSibling = none;
        return add(node);
    }

    // A sequence or choice in the making.
    struct List {
        Node node;
        std::uint32_t last = none;
    };

    void append(List* list, std::uint32_t index)
    {
        Node& node = list->node;
        const Node& child = syntax[index];
        const bool isFirst = list->last == none;
        if (isFirst)
            node.firstChild = index;
        else
            syntax.nodes[list->last].nextSibling = index;
        list->last = index;
        node.states += child.states;
        node.hasGroups = node.hasGroups || child.hasGroups;
        if (node.kind == NodeKind::sequence) {
            node.nullable = node.nullable && child.nullable;
            node.longest = addLengths(node.longest, child.longest);
        } else {
            if (!isFirst)
                node.states += layout::beforeAlternative + layout::behindAlternative;
            node.nullable = (!isFirst && node.nullable) || child.nullable;
            node.longest = std::max(node.longest, child.longest);
        }
    }

    // A child alone stands for the whole.
    std::uint32_t finish(const List& list)
    {
        if (list.last == none)
            throw Refusal{REG_EMPTY};
        return list.last == list.node.firstChild ? list.last : add(list.node);
    }

    std::uint32_t addRepeat(std::uint32_t child, std::uint32_t least, std::uint32_t most)
    {
        Node node = syntax[child];
        const std::uint32_t size = node.states;
        if (most == 0)
            node.states = 1;
        else if (most == unbounded)
            node.states = least == 0 ? size + 2 : least * size + 1;
        else
            node.states = least * size + (most - least) * (size + 1);
        node.kind = NodeKind::repeat;
        node.nullable = node.nullable || least == 0;
        node.least = least;
        node.most = most;
        node.longest = multiplyLengths(node.longest, most);
        node.firstChild = child;
        node.nextSibling = none;
        return add(node);
    }

    // ---- Extended --------------------------------------------------------------------------

    std::uint32_t readChoice()
    {
        List alternatives{{.kind = NodeKind::choice}};
        do {
            append(&alternatives, readSequence());
        } while (take("|"));
        return finish(alternatives);
    }

    std::uint32_t readSequence()
    {
        List pieces{{.kind = NodeKind::sequence}};
        while (!atEnd() && !startsWith('|') && !(nesting > 0 && startsWith(')'))) {
            const bool isCaret = startsWith('^');
            std::uint32_t piece = readAtom();
            if (atRepetition()) {
                if (isCaret)
                    throw Refusal{REG_BADRPT};
                piece = readRepetition(piece);
            }
            append(&pieces, piece);
        }
        return finish(pieces);
    }

    bool atRepetition() const
    {
        if (atEnd())
            return false;
        const char c = pattern[at];
        return extended ? c == '*' || c == '+' || c == '?' ||
                              (c == '{' && at + 1 < pattern.size() && isDigit(pattern[at + 1]))
                        : c == '*' || startsWith("\\{");
    }

    std::uint32_t readAtom()
    {
        if (atRepetition())
            throw Refusal{REG_BADRPT};
        const char c = pattern[at++];
        switch (c) {
        case '(':
            return readGroup(")");
        case ')':
            throw Refusal{REG_EPAREN};
        case '^':
            return addAssertion(Assertion::lineStart);
        case '$':
            return addAssertion(Assertion::lineEnd);
        case '.':
            return addAnyByte();
        case '[':
            return readBracketOrBoundary();
        case '\\':
            if (atEnd())
                throw Refusal{REG_EESCAPE};
            return addLiteral(pattern[at++]);
        default:
            return addLiteral(c);
        }
    }

    // ---- Basic -----------------------------------------------------------------------------

    bool atBasicEnd() const { return atEnd() || (nesting > 0 && startsWith("\\)")); }

    std::uint32_t readBasicSequence()
    {
        List pieces{{.kind = NodeKind::sequence}};
        if (take("^"))
            append(&pieces, addAssertion(Assertion::lineStart));
        for (bool atStart = true; !atBasicEnd(); atStart = false) {
            std::uint32_t piece = readBasicAtom(atStart);
            if (atRepetition())
                piece = readRepetition(piece);
            append(&pieces, piece);
        }
        return finish(pieces);
    }

    std::uint32_t readBasicAtom(bool atStart)
    {
        if (atRepetition() && !(atStart && startsWith('*')))
            throw Refusal{REG_BADRPT};
        const char c = pattern[at++];
        switch (c) {
        case '$':
            return atBasicEnd() ? addAssertion(Assertion::lineEnd) : addLiteral(c);
        case '.':
            return addAnyByte();
        case '[':
            return readBracketOrBoundary();
        case '\\':
            if (atEnd())
                throw Refusal{REG_EESCAPE};
            return readBasicEscape(pattern[at++]);
        default:
            return addLiteral(c);
        }
    }

    std::uint32_t readBasicEscape(char c)
    {
        switch (c) {
        case '(':
            return readGroup("\\)");
        case ')':
            throw Refusal{REG_EPAREN};
        case '}':
            throw Refusal{REG_EBRACE};
        default:
            return c >= '1' && c <= '9' ? readBackReference(c - '0') : addLiteral(c);
        }
    }

    std::uint32_t readBackReference(int digit)
    {
        const auto number = static_cast<std::uint32_t>(digit);
        if (number >= isClosed.size() || !isClosed[number])
            throw Refusal{REG_ESUBREG};
        syntax.hasBackReferences = true;
        // Its states are a loop over any byte: more than it matches, never less.
        ByteSet any;
        any.invert();
        const std::uint32_t child = addBytes(any);
        return add({.kind = NodeKind::backReference,
                    .value = number,
                    .firstChild = child,
                    .states = 3,
                    .longest = unbounded});
    }

    // ---- Both ------------------------------------------------------------------------------

    std::uint32_t readLiterals()
    {
        List pieces{{.kind = NodeKind::sequence}};
        while (!atEnd())
            append(&pieces, addLiteral(pattern[at++]));
        return finish(pieces);
    }

    std::uint32_t readGroup(std::string_view closing)
    {
        if (++nesting > deepestNesting)
            throw Refusal{REG_ESPACE};
        const std::uint32_t number = ++syntax.groups;
        isClosed.resize(number + 1);
        if (atEnd())
            throw Refusal{REG_EPAREN};
        std::uint32_t child = none;
        if (startsWith(closing))
            child = addEmpty();
        else
            child = extended ? readChoice() : readBasicSequence();
        if (!take(closing))
            throw Refusal{REG_EPAREN};
        --nesting;
        isClosed[number] = true;
        return addGroup(number, child);
    }

    std::uint32_t readBracketOrBoundary()
    {
        if (take(wordStart))
            return addAssertion(Assertion::wordStart);
        if (take(wordEnd))
            return addAssertion(Assertion::wordEnd);
        return addBytes(parseBracket(pattern, &at, cflags));
    }

    std::uint32_t readRepetition(std::uint32_t child)
    {
        std::uint32_t least = 0;
        std::uint32_t most = unbounded;
        const char c = pattern[at++];
        if (c == '+') {
            least = 1;
        } else if (c == '?') {
            most = 1;
        } else if (c != '*') {
            if (!extended)
                ++at;
            readBounds(&least, &most);
        }
        if (atRepetition())
            throw Refusal{REG_BADRPT};
        return addRepeat(child, least, most);
    }

    void readBounds(std::uint32_t* least, std::uint32_t* most)
    {
        const std::string_view closing = extended ? "}" : "\\}";
        if (atEnd() || !isDigit(pattern[at]))
            refuseBounds(closing);
        *least = readCount();
        *most = *least;
        if (take(",")) {
            *most = unbounded;
            if (!atEnd() && isDigit(pattern[at])) {
                *most = readCount();
                if (*least > *most)
                    throw Refusal{REG_BADBR};
            }
        }
        if (!take(closing))
            refuseBounds(closing);
    }

    std::uint32_t readCount()
    {
        std::uint32_t count = 0;
        for (; !atEnd() && isDigit(pattern[at]); ++at) {
            count = count * 10 + static_cast<std::uint32_t>(pattern[at] - '0');
            if (count > mostRepetitions)
                throw Refusal{REG_BADBR};
        }
        return count;
    }

    // Something else stands where the repetition should go on or end.
    [[noreturn]] void refuseBounds(std::string_view closing) const
    {
        const bool closes = pattern.find(closing, at) != std::string_view::npos;
        throw Refusal{closes ? REG_BADBR : REG_EBRACE};
    }

    std::string_view pattern;
    int cflags;
    bool extended;
    std::size_t at = 0;
    unsigned nesting = 0;
    std::vector<bool> isClosed;  // by group number
    Syntax syntax;
};

}  // namespace

bool isWordByte(std::uint8_t byte)
{
    return std::isalnum(byte) != 0 || byte == '_';
}

Syntax parse(std::string_view pattern, int cflags)
{
    return Parser(pattern, cflags).run();
}

}  // namespace regex
