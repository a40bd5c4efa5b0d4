// Syntax trees to programs: the states, the byte classes, and what a search can know beforehand.
//
// A search asks only whether there is a match, and that allows short cuts. Where A may be missing,
// "AB" matches somewhere in a text exactly if "B" does; so the search starts behind all that may
// be missing, and of a repetition at the start only the least count matters. What is then known
// of every match, its first byte and the longest literal in it, lets the search skip text at the
// speed of memchr and memmem.

#include "common/regex.h"
#include "common/regexProgram.h"
#include "common/regexSets.h"

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
            write(node.firstChild);
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

class Classes {
public:
    explicit Classes(RegexProgram& theProgram) : program(theProgram) { sizes[0] = 256; }

    // Gives the bytes of the set classes of their own. Of a set and its opposite, the smaller one
    // is less work.
    void refine(ByteSet set)
    {
        if (set.count() > 128)
            set.invert();
        std::array<std::uint16_t, 256> inside{};  // bytes by class
        set.forEach([&](std::uint8_t byte) { ++inside[program.classOf[byte]]; });
        std::array<std::uint8_t, 256> split;
        set.forEach([&](std::uint8_t byte) {
            std::uint8_t& number = program.classOf[byte];
            if (inside[number] == 0 || inside[number] == sizes[number])
                return;
            if (inside[number] != moving) {
                split[number] = static_cast<std::uint8_t>(program.classes++);
                sizes[split[number]] = inside[number];
                sizes[number] = static_cast<std::uint16_t>(sizes[number] - inside[number]);
                inside[number] = moving;
            }
            number = split[number];
        });
    }

private:
    static constexpr std::uint16_t moving = 0xffff;

    RegexProgram& program;
    std::array<std::uint16_t, 256> sizes{};
};

// Tells edges apart as far as the program asks for them.
void findEdges(RegexProgram& program, Classes* classes)
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

    if (usesWords) {
        ByteSet words;
        for (std::size_t byte = 0; byte < 256; ++byte) {
            if (isWordByte(static_cast<std::uint8_t>(byte)))
                words.add(byte);
        }
        classes->refine(words);
        words.forEach(
            [&](std::uint8_t byte) { program.edgeOf[program.classOf[byte]] = Edge::word; });
    }
    if (usesLines) {
        ByteSet lines;
        lines.add('\n');
        classes->refine(lines);
        program.edgeOf[program.classOf['\n']] = Edge::line;
    }
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

void fillMasks(RegexProgram& program)
{
    std::array<std::uint8_t, 256> sample{};  // a byte of each class
    for (std::size_t byte = 0; byte < 256; ++byte)
        sample[program.classOf[byte]] = static_cast<std::uint8_t>(byte);

    program.words = (program.states.size() + 63) / 64;
    constexpr std::size_t otherMasks = 4;
    program.masks.resize((program.classes + otherMasks) * program.words);
    program.jumpsOf.reserve(program.words + 1);
    for (std::uint32_t number = 0; number < program.states.size(); ++number) {
        const State& state = program.states[number];
        const std::uint64_t bit = std::uint64_t{1} << number % 64;
        const auto mark = [&](const std::uint64_t* mask) {
            program.masks[mask - program.masks.data() + number / 64] |= bit;
        };
        if (number % 64 == 0)
            program.jumpsOf.push_back(static_cast<std::uint32_t>(program.jumps.size()));
        switch (state.kind) {
        case StateKind::read:
            for (std::size_t c = 0; c < program.classes; ++c) {
                if (program.syntax.sets[state.value].has(sample[c]))
                    mark(program.readers(c));
            }
            break;
        case StateKind::assertion:
            mark(program.asserting());
            break;
        case StateKind::split:
            mark(program.splits());
            [[fallthrough]];
        case StateKind::jump:
            mark(program.silent());
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

// What a search can come to before it reads.
template <class Set>
void findStart(RegexProgram& program)
{
    Set start(program);
    start.add(program.entry);
    start.follow(program);
    start.save(&program.masks[program.masks.size() - program.words]);

    program.anchored = (program.cflags & REG_NEWLINE) == 0;
    for (std::uint32_t number = 0; number < program.states.size(); ++number) {
        const State& state = program.states[number];
        const bool isLineStart = state.kind == StateKind::assertion &&
                                 static_cast<Assertion>(state.value) == Assertion::lineStart;
        const bool isWay = state.kind == StateKind::jump || state.kind == StateKind::split;
        if (start.has(number) && !isWay && !isLineStart)
            program.anchored = false;
    }

    // The first bytes, as if every assertion held.
    for (bool again = true; again;) {
        again = false;
        start.forEach(program.asserting(), [&](std::uint32_t number) {
            again = again || !start.has(number + 1);
            start.add(number + 1);
        });
        start.follow(program);
    }
    ByteSet first;
    for (std::uint32_t number = 0; number < program.matchState(); ++number) {
        if (start.has(number) && program.states[number].kind == StateKind::read)
            first.add(program.syntax.sets[program.states[number].value]);
    }
    program.hasFirst = !start.has(program.matchState());
    program.firstCount = first.count();
    first.forEach([&](std::uint8_t byte) {
        program.first[byte] = 1;
        program.firstByte = byte;
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
        syntax.sets[node.value].forEach(
            [&](std::uint8_t byte) { literal.push_back(static_cast<char>(byte)); });
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

    Classes classes(*program);
    for (const ByteSet& set : program->syntax.sets)
        classes.refine(set);
    findEdges(*program, &classes);
    fillMasks(*program);

    program->matchesAlways = program->syntax[program->syntax.root].nullable;
    if (program->matchesAlways)
        return;
    program->entry = findEntry(program->syntax);
    if (program->states.size() <= mostSmallStates)
        findStart<SmallSet>(*program);
    else
        findStart<LargeSet>(*program);
    LiteralFinder(program->syntax).run(program);
}

}  // namespace regex
