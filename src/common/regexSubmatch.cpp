// Where is the match, and where are its subexpressions?
//
// POSIX wants the match that starts first, the longest of those, and of its subpatterns, from left
// to right, each as long as possible; an empty match counts as longer than none. Sets of states
// answer that in passes that are linear in the text:
//     1. Backwards over the text, with the sets of states from which a match can be completed. The
//        lowest place where the first state is in the set is the start.
//     2. Forwards from the start, for the last place where the match state is in the set.
//     3. From the root of the tree down, each node knowing its span. Backwards over the span,
//        the states from which the node can end just there; then forwards, child by child:
//        the states of the child alone, and of those only the ones from which the rest can
//        still be completed. The last place where the child can end is its longest match. As
//        states that lead nowhere are dropped, this never reads beyond that place, so that all
//        children together read the span once.
//
// A subexpression in a repetition has the position of its last turn, so of the turns only the last
// is gone into. Turns match something, but for those that the least count asks for and for a
// single one.
//
// The sets of step 3 are kept in blocks: one set for each block's end, and all sets of one block,
// which is computed anew when the forward pass enters it. That makes the memory the square root
// of the span, for twice the time.

#include "common/regexProgram.h"
#include "common/regexSets.h"

#include <cmath>
#include <optional>

namespace regex {
namespace {

// A node, its states, and the span that it has to match.
struct Task {
    std::uint32_t node;
    std::uint32_t first;
    std::size_t begin, end;
};

template <class Set>
class Submatcher {
public:
    Submatcher(const RegexProgram& theProgram, const Text& theText)
        : program(theProgram), syntax(theProgram.syntax), text(theText)
    {
        for (std::uint32_t number = 0; number < program.matchState(); ++number) {
            if (program.states[number].kind != StateKind::read)
                silent.push_back(number);
        }
    }

    bool run(std::vector<Span>* spans)
    {
        const std::optional<std::size_t> begin = findBegin();
        if (!begin)
            return false;
        const std::size_t end = findEnd(*begin);
        spans->assign(syntax.groups + 1, {});
        (*spans)[0] = span(*begin, end);

        tasks.push_back({syntax.root, 0, *begin, end});
        while (!tasks.empty()) {
            const Task task = tasks.back();
            tasks.pop_back();
            place(task, spans);
        }
        return true;
    }

private:
    static Span span(std::size_t begin, std::size_t end)
    {
        return {static_cast<std::ptrdiff_t>(begin), static_cast<std::ptrdiff_t>(end)};
    }

    const std::uint64_t* readers(std::size_t place) const
    {
        return program.readers(program.classOf[text.begin[place]]);
    }

    // ---- Backwards -------------------------------------------------------------------------

    // Adds the silent states from `first` on, up to `last`, behind which lies one of the set.
    void completeBackwards(Set& set, std::uint32_t first, std::uint32_t last, const Gap& gap) const
    {
        const auto begin = std::lower_bound(silent.begin(), silent.end(), first);
        const auto end = std::lower_bound(begin, silent.end(), last);
        // Most ways lead onwards, so going down a single pass sees them. One that leads back
        // makes another pass necessary.
        for (bool again = begin != end; again;) {
            again = false;
            for (auto number = end; number-- != begin;) {
                if (set.has(*number) || !leadsInto(set, *number, gap))
                    continue;
                set.add(*number);
                again = true;
            }
        }
    }

    bool leadsInto(const Set& set, std::uint32_t number, const Gap& gap) const
    {
        const State& state = program.states[number];
        switch (state.kind) {
        case StateKind::jump:
            return set.has(state.value);
        case StateKind::split:
            return set.has(state.value) || set.has(number + 1);
        case StateKind::assertion:
            return set.has(number + 1) && gap.allows(static_cast<Assertion>(state.value));
        case StateKind::read:
        case StateKind::match:
            break;
        }
        return false;
    }

    std::optional<std::size_t> findBegin() const
    {
        const std::uint32_t match = program.matchState();
        std::optional<std::size_t> found;
        Set set(program);
        for (std::size_t place = text.size();; --place) {
            set.add(match);
            completeBackwards(set, 0, match, program.gapAt(text, place));
            if (set.has(0))
                found = place;
            if (place == 0)
                return found;
            set.retreat(readers(place - 1));
        }
    }

    // The sets of states from which the task's node can end exactly where it has to.
    class Ways {
    public:
        Ways(const Submatcher& theOwner, const Task& theTask, std::uint32_t theLast)
            : owner(theOwner), task(theTask), last(theLast)
        {
            const std::size_t length = task.end - task.begin;
            const auto root = static_cast<std::size_t>(std::sqrt(static_cast<double>(length)));
            blockLength = std::max(shortestBlock, root);
            const std::size_t count = length / blockLength + 1;

            Set set(owner.program);
            set.add(last);
            owner.completeBackwards(set, task.first, last,
                                    owner.program.gapAt(owner.text, task.end));
            blockEnds.resize(count, set);
            for (std::size_t number = count; number-- > 1;) {
                blockEnds[number] = set;
                for (std::size_t place = endOf(number); place > endOf(number - 1); --place)
                    stepBack(set, place);
            }
            blockEnds[0] = set;
            load(0);
        }

        std::size_t end() const { return task.end; }

        const Set& at(std::size_t place)
        {
            const std::size_t number = (place - task.begin) / blockLength;
            if (number != loaded)
                load(number);
            return block[place - beginOf(number)];
        }

    private:
        static constexpr std::size_t shortestBlock = 64;

        std::size_t beginOf(std::size_t number) const { return task.begin + number * blockLength; }
        std::size_t endOf(std::size_t number) const
        {
            return std::min(task.end, beginOf(number + 1));
        }

        // From the set at the place to the one a byte earlier.
        void stepBack(Set& set, std::size_t place) const
        {
            set.retreat(owner.readers(place - 1));
            owner.completeBackwards(set, task.first, last,
                                    owner.program.gapAt(owner.text, place - 1));
        }

        void load(std::size_t number)
        {
            const std::size_t begin = beginOf(number);
            Set set = blockEnds[number];
            block.assign(endOf(number) - begin + 1, set);
            for (std::size_t place = endOf(number); place > begin; --place) {
                stepBack(set, place);
                block[place - 1 - begin] = set;
            }
            loaded = number;
        }

        const Submatcher& owner;
        const Task& task;
        std::uint32_t last;  // the state behind the node
        std::size_t blockLength = 0;
        std::vector<Set> blockEnds;
        std::vector<Set> block;
        std::size_t loaded = 0;
    };

    // ---- Forwards --------------------------------------------------------------------------

    // Adds what lies behind the silent states of the set, and not what lies behind `last`.
    void complete(Set& set, const Gap& gap, std::uint32_t last)
    {
        const auto open = [&](std::uint32_t number) {
            if (number != last)
                openBehind(number, gap);
        };
        set.forEach(program.silent(), open);
        set.forEach(program.asserting(), open);
        while (!opened.empty()) {
            const std::uint32_t number = opened.back();
            opened.pop_back();
            if (set.has(number))
                continue;
            set.add(number);
            open(number);
        }
    }

    void openBehind(std::uint32_t number, const Gap& gap)
    {
        const State& state = program.states[number];
        if (state.kind == StateKind::jump || state.kind == StateKind::split)
            opened.push_back(state.value);
        if (state.kind == StateKind::split ||
            (state.kind == StateKind::assertion && gap.allows(static_cast<Assertion>(state.value))))
            opened.push_back(number + 1);
    }

    std::size_t findEnd(std::size_t begin)
    {
        const std::uint32_t match = program.matchState();
        std::size_t found = begin;
        Set set(program);
        set.add(0);
        for (std::size_t place = begin;; ++place) {
            complete(set, program.gapAt(text, place), none);
            if (set.has(match))
                found = place;
            if (place == text.size() || set.isEmpty())
                return found;
            set.advance(readers(place));
        }
    }

    // The last place where the states from `first` can come to `last` and the ways allow it.
    std::size_t findLongest(std::uint32_t first, std::uint32_t last, std::size_t begin, Ways& ways)
    {
        std::size_t found = begin;
        Set set(program);
        set.add(first);
        for (std::size_t place = begin;; ++place) {
            complete(set, program.gapAt(text, place), last);
            set.keep(ways.at(place));
            if (set.has(last))
                found = place;
            set.remove(last);
            if (place == ways.end() || set.isEmpty())
                return found;
            set.advance(readers(place));
        }
    }

    // ---- Nodes -----------------------------------------------------------------------------

    void place(const Task& task, std::vector<Span>* spans)
    {
        const Node& node = syntax[task.node];
        if (!node.hasGroups)
            return;
        switch (node.kind) {
        case NodeKind::group:
            (*spans)[node.value] = span(task.begin, task.end);
            tasks.push_back({node.firstChild, task.first, task.begin, task.end});
            break;
        case NodeKind::sequence:
            placeSequence(node, task);
            break;
        case NodeKind::choice:
            placeChoice(node, task);
            break;
        case NodeKind::repeat:
            placeRepeat(node, task);
            break;
        case NodeKind::empty:
        case NodeKind::bytes:
        case NodeKind::assertion:
        case NodeKind::backReference:
            break;
        }
    }

    void placeSequence(const Node& node, const Task& task)
    {
        Ways ways(*this, task, task.first + node.states);
        std::uint32_t first = task.first;
        std::size_t begin = task.begin;
        for (std::uint32_t c = node.firstChild; c != none; c = syntax[c].nextSibling) {
            const std::uint32_t last = first + syntax[c].states;
            const std::size_t end = findLongest(first, last, begin, ways);
            tasks.push_back({c, first, begin, end});
            first = last;
            begin = end;
        }
    }

    // The first alternative that can.
    void placeChoice(const Node& node, const Task& task)
    {
        Ways ways(*this, task, task.first + node.states);
        std::uint32_t first = task.first;
        for (std::uint32_t c = node.firstChild; c != none; c = syntax[c].nextSibling) {
            const bool isLast = syntax[c].nextSibling == none;
            if (!isLast)
                first += layout::beforeAlternative;
            if (isLast || ways.at(task.begin).has(first)) {
                tasks.push_back({c, first, task.begin, task.end});
                return;
            }
            first += syntax[c].states + layout::behindAlternative;
        }
    }

    void placeRepeat(const Node& node, const Task& task)
    {
        if (node.most == 0)
            return;
        Ways ways(*this, task, task.first + node.states);
        const std::uint32_t size = syntax[node.firstChild].states;
        std::optional<Task> lastTurn;
        std::size_t begin = task.begin;
        for (std::uint32_t turn = 0; turn < node.most; ++turn) {
            const std::uint32_t first = layout::copy(syntax, node, task.first, turn);
            if (begin == task.end && turn >= node.least && (turn > 0 || !ways.at(begin).has(first)))
                break;
            const std::size_t end = findLongest(first, first + size, begin, ways);
            lastTurn = Task{node.firstChild, first, begin, end};
            begin = end;
        }
        if (lastTurn)
            tasks.push_back(*lastTurn);
    }

    const RegexProgram& program;
    const Syntax& syntax;
    const Text& text;
    std::vector<std::uint32_t> silent;  // the states that read nothing, in order
    std::vector<std::uint32_t> opened;  // states that complete() has yet to look at
    std::vector<Task> tasks;
};

}  // namespace

bool findMatch(RegexProgram& program, const Text& text, std::vector<Span>* spans)
{
    if (!hasMatch(program, text))
        return false;
    if (program.states.size() <= mostSmallStates)
        return Submatcher<SmallSet>(program, text).run(spans);
    return Submatcher<LargeSet>(program, text).run(spans);
}

}  // namespace regex
