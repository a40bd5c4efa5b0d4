// Syntax trees to programs: the states, the byte classes, and what a search can know beforehand.
//
// A search asks only whether there is a match, and that allows short cuts. Where A may be missing,
// "AB" matches somewhere in a text exactly if "B" does; so the search starts behind all that may
// be missing, and of a repetition at the start only the least count matters. What is then known
// of every match, its first byte and the longest literal in it, lets the search skip text at the
// speed of memchr and memmem.

#include "common/regex.h"
#include "common/regexProgram.h"

#include <algorithm>
#include <utility>

namespace regex {
namespace {

// ---- States --------------------------------------------------------------------------------

class StateWriter {
public:
    StateWriter(const Syntax& theSyntax, std::vector<State>* out) : syntax(theSyntax), states(*out)
    {
        states.reserve(syntax[syntax.root].states + 1);
    }

    // The states of the node. Recursion goes as deep as the tree.
    void write(std::uint32_t index)
    {
        const Node& node = syntax[index];
        const std::uint32_t end = here() + node.states;
        switch (node.kind) {
        case NodeKind::empty:
            add(StateKind::jump, end);
            break;
        case NodeKind::bytes:
            add(StateKind::read, node.value);
            break;
        case NodeKind::assertion:
            add(StateKind::assertion, node.value);
            break;
        case NodeKind::backReference:
            add(StateKind::split, end);
            add(StateKind::read, none);
            add(StateKind::jump, end - node.states);
            break;
        case NodeKind::group:
            write(node.firstChild);
            break;
        case NodeKind::sequence:
            for (std::uint32_t c = node.firstChild; c != none; c = syntax[c].nextSibling)
                write(c);
            break;
        case NodeKind::choice:
            writeChoice(node, end);
            break;
        case NodeKind::repeat:
            writeRepeat(node, end);
            break;
        }
    }

    void add(StateKind kind, std::uint32_t value) { states.push_back({kind, value}); }

private:
    std::uint32_t here() const { return static_cast<std::uint32_t>(states.size()); }

    void writeChoice(const Node& node, std::uint32_t end)
    {
        for (std::uint32_t c = node.firstChild; c != none; c = syntax[c].nextSibling) {
            if (syntax[c].nextSibling == none) {
                write(c);
                break;
            }
            add(StateKind::split,
                here() + layout::beforeAlternative + syntax[c].states + layout::behindAlternative);
            write(c);
            add(StateKind::jump, end);
        }
    }

    void writeRepeat(const Node& node, std::uint32_t end)
    {
        for (std::uint32_t turn = 1; turn < node.least; ++turn)
            write(node.firstChild);
        if (node.most == unbounded) {
            if (node.least == 0)
                add(StateKind::split, end);
            const std::uint32_t loop = here();
            write(node.firstChild);
            add(StateKind::split, loop);
            return;
        }
        if (node.least > 0)
            write(node.firstChild);
        for (std::uint32_t turn = node.least; turn < node.most; ++turn) {
            add(StateKind::split, end);
            write(node.firstChild);
        }
        if (node.most == 0)
            add(StateKind::jump, end);
    }

    const Syntax& syntax;
    std::vector<State>& states;
};

// ---- Byte classes and sets of states -------------------------------------------------------

// Gives the bytes of the set classes of their own.
void refine(RegexProgram& program, const ByteSet& set)
{
    if (set.none() || set.all())
        return;  // tells no two bytes apart
    constexpr std::uint8_t unseen = 0;  // no class is split off from another as number 0
    std::array<std::uint8_t, 256> inside{};
    std::array<bool, 256> hasOutside{};
    for (std::size_t byte = 0; byte < 256; ++byte) {
        if (!set[byte])
            hasOutside[program.classOf[byte]] = true;
    }
    for (std::size_t byte = 0; byte < 256; ++byte) {
        std::uint8_t& old = program.classOf[byte];
        if (!set[byte] || !hasOutside[old])
            continue;
        if (inside[old] == unseen)
            inside[old] = static_cast<std::uint8_t>(program.classes++);
        old = inside[old];
    }
}

Edge edgeOf(std::size_t byte, bool usesWords, bool usesLines)
{
    if (usesLines && byte == '\n')
        return Edge::line;
    return usesWords && isWordByte(static_cast<std::uint8_t>(byte)) ? Edge::word : Edge::plain;
}

void classify(RegexProgram& program)
{
    bool usesWords = false;
    bool usesLines = false;
    for (const State& state : program.states) {
        if (state.kind != StateKind::assertion)
            continue;
        const auto assertion = static_cast<Assertion>(state.value);
        const bool isWords = assertion == Assertion::wordStart || assertion == Assertion::wordEnd;
        usesWords = usesWords || isWords;
        usesLines = usesLines || (!isWords && (program.cflags & REG_NEWLINE) != 0);
    }
    program.edgesMatter = usesWords || usesLines;

    for (const ByteSet& set : program.syntax.sets)
        refine(program, set);
    if (!program.edgesMatter) {
        program.edgeOf.resize(program.classes, Edge::plain);
        return;
    }
    ByteSet words;
    ByteSet lines;
    for (std::size_t byte = 0; byte < 256; ++byte) {
        words[byte] = edgeOf(byte, usesWords, usesLines) == Edge::word;
        lines[byte] = edgeOf(byte, usesWords, usesLines) == Edge::line;
    }
    refine(program, words);
    refine(program, lines);

    program.edgeOf.resize(program.classes);
    for (std::size_t byte = 0; byte < 256; ++byte)
        program.edgeOf[program.classOf[byte]] = edgeOf(byte, usesWords, usesLines);
}

// Adds a jump of the word that is being filled. Many have the same target: all that leave a
// repetition have.
void addJump(RegexProgram& program, std::uint64_t bit, std::uint32_t target)
{
    const auto begin = program.jumps.begin() + program.jumpsOf.back();
    const auto known = std::find_if(begin, program.jumps.end(),
                                    [target](const Jump& jump) { return jump.target == target; });
    if (known != program.jumps.end())
        known->from |= bit;
    else
        program.jumps.push_back({bit, target});
}

void fillSets(RegexProgram& program)
{
    const std::size_t words = (program.states.size() + 63) / 64;
    std::vector<std::uint8_t> sample(program.classes);  // a byte of each class
    for (std::size_t byte = 0; byte < 256; ++byte)
        sample[program.classOf[byte]] = static_cast<std::uint8_t>(byte);

    program.words = words;
    program.readers.resize(program.classes * words);
    program.silent.resize(words);
    program.asserting.resize(words);
    program.splits.resize(words);
    for (std::uint32_t number = 0; number < program.states.size(); ++number) {
        const State& state = program.states[number];
        const std::uint64_t bit = std::uint64_t{1} << number % 64;
        if (number % 64 == 0)
            program.jumpsOf.push_back(static_cast<std::uint32_t>(program.jumps.size()));
        switch (state.kind) {
        case StateKind::read:
            for (std::size_t c = 0; c < program.classes; ++c) {
                if (state.value == none || program.syntax.sets[state.value][sample[c]])
                    program.readers[c * words + number / 64] |= bit;
            }
            break;
        case StateKind::assertion:
            program.asserting[number / 64] |= bit;
            program.silentStates.push_back(number);
            break;
        case StateKind::jump:
        case StateKind::split:
            program.silent[number / 64] |= bit;
            program.silentStates.push_back(number);
            if (state.kind == StateKind::split)
                program.splits[number / 64] |= bit;
            addJump(program, bit, state.value);
            break;
        case StateKind::match:
            break;
        }
    }
    program.jumpsOf.push_back(static_cast<std::uint32_t>(program.jumps.size()));
}

// ---- Knowledge for searches ----------------------------------------------------------------

// The first state that a search can't do without.
std::uint32_t findEntry(const Syntax& syntax)
{
    std::uint32_t first = 0;
    std::uint32_t index = syntax.root;
    for (;;) {
        const Node& node = syntax[index];
        if (node.kind == NodeKind::group) {
            index = node.firstChild;
        } else if (node.kind == NodeKind::sequence) {
            for (index = node.firstChild; syntax[index].nullable; index = syntax[index].nextSibling)
                first += syntax[index].states;
        } else {
            return first;
        }
    }
}

// Calls reached(state) for all that a search can come to without reading: readers, assertions, the
// match. Behind an assertion it goes on if `reached` says so.
template <class Reached>
void explore(const RegexProgram& program, Reached reached)
{
    std::vector<bool> seen(program.states.size());
    std::vector<std::uint32_t> open{program.entry};
    while (!open.empty()) {
        const std::uint32_t number = open.back();
        open.pop_back();
        if (seen[number])
            continue;
        seen[number] = true;
        const State& state = program.states[number];
        if (state.kind == StateKind::jump || state.kind == StateKind::split)
            open.push_back(state.value);
        if (state.kind == StateKind::split || (state.kind != StateKind::jump && reached(state)))
            open.push_back(number + 1);
    }
}

void findFirstBytes(RegexProgram& program)
{
    ByteSet first;
    program.hasFirst = true;
    explore(program, [&](const State& state) {
        if (state.kind == StateKind::read)
            first |= state.value == none ? ByteSet().set() : program.syntax.sets[state.value];
        if (state.kind == StateKind::match)
            program.hasFirst = false;
        return state.kind == StateKind::assertion;
    });
    for (std::size_t byte = 0; byte < 256; ++byte)
        program.first[byte] = first[byte];
}

void findAnchor(RegexProgram& program)
{
    program.anchored = (program.cflags & REG_NEWLINE) == 0;
    explore(program, [&](const State& state) {
        if (state.kind != StateKind::assertion ||
            static_cast<Assertion>(state.value) != Assertion::lineStart)
            program.anchored = false;
        return false;
    });
}

// The longest run of single bytes on the way that every match takes.
class LiteralFinder {
public:
    explicit LiteralFinder(const Syntax& theSyntax) : syntax(theSyntax) {}

    void run(RegexProgram* program)
    {
        visit(syntax.root);
        endRun();
        program->literal = std::move(best);
        program->literalLead = bestLead;
    }

private:
    // What a match can have in front, with what a search leaves out taken off, is `lead` bytes
    // at most. Nothing but what may be missing has come before while `atStart` holds.
    void visit(std::uint32_t index)
    {
        const Node& node = syntax[index];
        if (atStart && node.nullable)
            return;
        switch (node.kind) {
        case NodeKind::empty:
            break;
        case NodeKind::assertion:
            atStart = false;
            break;
        case NodeKind::group:
            visit(node.firstChild);
            break;
        case NodeKind::sequence:
            for (std::uint32_t c = node.firstChild; c != none; c = syntax[c].nextSibling)
                visit(c);
            break;
        case NodeKind::repeat:
            visitRepeat(node);
            break;
        case NodeKind::bytes:
            if (syntax.sets[node.value].count() == 1) {
                addByte(node);
                break;
            }
            [[fallthrough]];
        case NodeKind::choice:
        case NodeKind::backReference:
            skip(node.longest);
            break;
        }
    }

    void visitRepeat(const Node& node)
    {
        const Node& child = syntax[node.firstChild];
        const std::uint32_t most = atStart ? node.least : node.most;
        if (node.least == 0) {
            skip(node.longest);
        } else if (child.kind == NodeKind::bytes && syntax.sets[child.value].count() == 1) {
            for (std::uint32_t turn = 0; turn < node.least; ++turn)
                addByte(child);
            if (node.least == node.most)
                return;
            // The last ones of a longer row stand in front of what follows.
            endRun();
            lead = most == unbounded ? unbounded : addUp(lead, most - node.least);
            lead = lead == unbounded ? unbounded : lead - node.least;
            for (std::uint32_t turn = 0; turn < node.least; ++turn)
                addByte(child);
        } else {
            endRun();
            visit(node.firstChild);
            endRun();
            if (most == unbounded)
                lead = unbounded;
            for (std::uint32_t turn = 1; turn < most && lead != unbounded; ++turn)
                lead = addUp(lead, child.longest);
        }
    }

    static std::uint32_t addUp(std::uint32_t a, std::uint32_t b)
    {
        return a == unbounded || b == unbounded || a + b < a ? unbounded : a + b;
    }

    void addByte(const Node& node)
    {
        if (literal.empty())
            literalLead = lead;
        const ByteSet& set = syntax.sets[node.value];
        std::size_t byte = 0;
        while (!set[byte])
            ++byte;
        literal.push_back(static_cast<char>(byte));
        lead = addUp(lead, 1);
        atStart = false;
    }

    void skip(std::uint32_t length)
    {
        endRun();
        lead = addUp(lead, length);
        atStart = false;
    }

    void endRun()
    {
        if (literal.size() > best.size() ||
            (literal.size() == best.size() && literalLead < bestLead)) {
            best = literal;
            bestLead = literalLead;
        }
        literal.clear();
    }

    const Syntax& syntax;
    bool atStart = true;
    std::uint32_t lead = 0;
    std::string literal;
    std::uint32_t literalLead = 0;
    std::string best;
    std::uint32_t bestLead = unbounded;
};

}  // namespace

void compile(Syntax syntax, int cflags, RegexProgram* program)
{
    program->syntax = std::move(syntax);
    program->cflags = cflags;

    StateWriter writer(program->syntax, &program->states);
    writer.write(program->syntax.root);
    writer.add(StateKind::match, 0);
    program->bad = program->states.size() != program->syntax[program->syntax.root].states + 1;
    if (program->bad)
        return;

    classify(*program);
    fillSets(*program);
    program->matchesAlways = program->syntax[program->syntax.root].nullable;
    if (!program->matchesAlways)
        program->entry = findEntry(program->syntax);
    findFirstBytes(*program);
    findAnchor(*program);
    LiteralFinder(program->syntax).run(program);
}

}  // namespace regex
