// Is there a match? The question without positions, and the fast one.
//
// A set of states follows the text; at every byte the initial states join it, so that one pass
// tries all starts at once, and the pass ends as soon as the match state is in the set. That is
// linear in the text whatever the pattern: no start is tried twice and nothing is undone. An
// assertion looks at both sides of a gap, so it is passed one byte late, when the next byte (or
// the end) is known.
//
// Following a set costs some ten nanoseconds a byte, more for large programs. Three things make
// a long text cheap:
//     - Sets recur. After a few bytes, they become rows of an automaton that is built as it is
//       needed: a row for each set that has come up (and the edge in front of it, where that
//       matters), with the row that each class of bytes leads to. The table lives as long as the
//       program and is bounded: when it is full, it starts anew. A text that keeps filling it
//       gains nothing from it, and the sets themselves go on.
//     - While nothing but the initial states is in the set, no match is under way, and the next
//       one is looked for directly: by the longest literal that all matches contain, or by the
//       bytes with which they start.
//     - A text without that literal isn't walked at all.

#include "common/regexProgram.h"
#include "common/regexSets.h"

#include <cstring>

namespace regex {
namespace {

constexpr std::size_t cacheBytes = std::size_t{512} * 1024;
constexpr std::size_t fewestRows = 64;
constexpr std::size_t mostRows = 10000;
constexpr std::size_t firstTableSize = 64;

constexpr std::ptrdiff_t firstWalk = 16;  // bytes that sets follow before there is a table
constexpr std::size_t worthBytes = 8;     // a row is worth building for so many
constexpr unsigned staysBeforeLeap = 16;  // bytes in one row before more are looked at together
constexpr std::size_t skipsBeforeJudgement = 16;
constexpr std::size_t worthSkipping = 8;  // bytes a skip, on average

enum class Verdict { open, yes, no };

template <class Set>
class Search {
public:
    Search(RegexProgram& theProgram, const Text& theText)
        : program(theProgram),
          cache(theProgram.cache),
          text(theText),
          end(theText.end),
          at(theText.begin),
          before(theText.atBegin),
          initial(theProgram),
          current(theProgram)
    {
        initial.load(program.initial());
    }

    bool run()
    {
        const std::uint8_t* stop = end;
        if (end == nullptr && program.anchored) {
            // Most often a few bytes decide.
            stop = text.begin + strnlen(reinterpret_cast<const char*>(text.begin), firstWalk);
            if (stop - text.begin < firstWalk)
                end = stop;
        } else {
            findEnd();
            if (!program.anchored && !skip())
                return false;
            stop = end - at > firstWalk ? at + firstWalk : end;
        }

        current = initial;
        Verdict verdict = walk(stop);
        if (verdict == Verdict::open) {
            findEnd();
            if (program.anchored && !program.literal.empty() && findLiteral(text.begin) == nullptr)
                return false;
            verdict = walkTable();
        }
        if (verdict == Verdict::open)
            verdict = walk(end);
        if (verdict == Verdict::open) {
            passAssertions(current, program, {before, text.atEnd});
            return current.has(program.matchState());
        }
        return verdict == Verdict::yes;
    }

private:
    // ---- Skipping --------------------------------------------------------------------------

    void findEnd()
    {
        if (end == nullptr)
            end = at + std::strlen(reinterpret_cast<const char*>(at));
    }

    const std::uint8_t* findLiteral(const std::uint8_t* from) const
    {
        const std::string& literal = program.literal;
        const auto left = static_cast<std::size_t>(end - from);
        if (literal.size() == 1)
            return static_cast<const std::uint8_t*>(std::memchr(from, literal[0], left));
        return static_cast<const std::uint8_t*>(memmem(from, left, literal.data(), literal.size()));
    }

    const std::uint8_t* findFirst(const std::uint8_t* from) const
    {
        const auto& first = program.first;
        if (program.firstCount == 1) {
            const auto left = static_cast<std::size_t>(end - from);
            const void* found = std::memchr(from, program.firstByte, left);
            return static_cast<const std::uint8_t*>(found);
        }
        while (end - from >= 4 &&
               (first[from[0]] | first[from[1]] | first[from[2]] | first[from[3]]) == 0)
            from += 4;
        while (from != end && first[*from] == 0)
            ++from;
        return from == end ? nullptr : from;
    }

    // Goes on to where the next match may start; false if there is none. No match is under way.
    bool skip()
    {
        const bool hasLiteral = !program.literal.empty();
        const bool hasLead = hasLiteral && program.literalLead != unbounded;
        for (;;) {
            if (hasLiteral && (literalAt == nullptr || (hasLead && literalAt < at))) {
                literalAt = findLiteral(at);
                if (literalAt == nullptr)
                    return false;
            }
            if (hasLead && static_cast<std::size_t>(literalAt - at) > program.literalLead)
                moveTo(literalAt - program.literalLead);
            if (!program.hasFirst)
                return true;
            const std::uint8_t* const next = findFirst(at);
            if (next == nullptr)
                return false;
            moveTo(next);
            if (!hasLead || at <= literalAt)
                return true;
        }
    }

    void moveTo(const std::uint8_t* place)
    {
        if (place != text.begin)
            before = program.edge(place[-1]);
        at = place;
    }

    // ---- Following sets --------------------------------------------------------------------

    // Reads a byte of the class; true if a match has come to its end.
    bool step(Set& set, Edge edgeBefore, std::size_t byteClass)
    {
        if (set.meets(program.asserting())) {
            passAssertions(set, program, {edgeBefore, program.edgeOf[byteClass]});
            if (set.has(program.matchState()))
                return true;
        }
        set.advance(program.readers(byteClass));
        set.follow(program);
        if (!program.anchored)
            set.add(initial);
        return set.has(program.matchState());
    }

    Verdict walk(const std::uint8_t* stop)
    {
        for (; at != stop; ++at) {
            const std::size_t byteClass = program.classOf[*at];
            if (step(current, before, byteClass))
                return Verdict::yes;
            if (current.isEmpty())
                return Verdict::no;
            before = program.edgeOf[byteClass];
        }
        return Verdict::open;
    }

    // ---- Following rows --------------------------------------------------------------------

    std::uint32_t rowLength() const { return static_cast<std::uint32_t>(program.classes); }
    std::uint32_t unknownRow() const { return 0; }
    std::uint32_t deadRow() const { return rowLength(); }
    std::uint32_t matchRow() const { return 2 * rowLength(); }
    std::uint32_t initialRow() const { return 3 * rowLength(); }

    // Gives `open` at the end of the text, or where the table is no help; `current` is the set
    // there.
    Verdict walkTable()
    {
        if (cache.rows == 0)
            clearCache();
        builtFrom = at;

        // Where edges matter, the row behind skipped text would have to be looked for.
        canSkip = !program.anchored && !program.edgesMatter &&
                  (program.hasFirst || !program.literal.empty());
        std::uint32_t row = rowOf(current, before);
        for (;;) {
            std::uint32_t target = followRows(&row);
            if (at == end) {
                current.load(&cache.sets[row / rowLength() * program.words]);
                before = cache.before[row / rowLength()];
                return Verdict::open;
            }
            if (target == unknownRow()) {
                target = build(row, program.classOf[*at]);
                if (!worthwhile) {
                    before = program.edge(*at++);
                    return Verdict::open;
                }
            }
            if (target == matchRow())
                return Verdict::yes;
            if (target == deadRow())
                return Verdict::no;
            row = target;
            ++at;
            if (row == initialRow() && canSkip && !skipCounted())
                return Verdict::no;
        }
    }

    // Goes on, from row to row, up to the end or to the byte that leads to the special row that
    // it gives.
    std::uint32_t followRows(std::uint32_t* from)
    {
        const std::uint32_t* const next = cache.next.data();
        const std::uint8_t* const classOf = program.classOf.data();
        const std::uint32_t lastSpecial = canSkip ? initialRow() : matchRow();
        std::uint32_t row = *from;
        std::uint32_t target = row;
        unsigned stays = 0;
        const std::uint8_t* place = at;
        for (; place != end; ++place) {
            target = next[row + classOf[*place]];
            if (target <= lastSpecial)
                break;
            stays = target == row ? stays + 1 : 0;
            row = target;
            if (stays == staysBeforeLeap) {
                // In one row, bytes needn't wait for the ones before them.
                stays = 0;
                const auto leaves = [&](std::ptrdiff_t i) {
                    return next[row + classOf[place[i]]] ^ row;
                };
                while (end - place > 4 && (leaves(1) | leaves(2) | leaves(3) | leaves(4)) == 0)
                    place += 4;
            }
        }
        at = place;
        *from = row;
        return target;
    }

    // Skips as long as it pays.
    bool skipCounted()
    {
        const std::uint8_t* const from = at;
        if (!skip())
            return false;
        skippedBytes += static_cast<std::size_t>(at - from);
        ++skips;
        canSkip = skips < skipsBeforeJudgement || skippedBytes >= skips * worthSkipping;
        return true;
    }

    // Fills in where the class leads to from the row; `current` is the set there.
    std::uint32_t build(std::uint32_t row, std::size_t byteClass)
    {
        const std::size_t index = row / rowLength();
        current.load(&cache.sets[index * program.words]);
        std::uint32_t target = deadRow();
        if (step(current, cache.before[index], byteClass)) {
            target = matchRow();
        } else if (!current.isEmpty()) {
            if (isFull()) {
                const auto bytes = static_cast<std::size_t>(at - builtFrom);
                worthwhile = bytes >= worthBytes * cache.rows;
                builtFrom = at;
                clearCache();
                return rowOf(current, program.edgeOf[byteClass]);
            }
            target = rowOf(current, program.edgeOf[byteClass]);
        }
        cache.next[row + byteClass] = target;
        return target;
    }

    bool isFull() const
    {
        const std::size_t rowBytes = rowLength() * sizeof(std::uint32_t) + program.words * 8;
        const std::size_t limit = std::clamp(cacheBytes / rowBytes, fewestRows, mostRows);
        return cache.rows >= limit;
    }

    void clearCache()
    {
        cache = DfaCache();
        cache.table.resize(firstTableSize);
        for (std::uint32_t row = 0; row < initialRow(); row += rowLength())
            addRow(initial, Edge::plain);
        rowOf(initial, Edge::plain);
    }

    std::uint32_t addRow(const Set& set, Edge edge)
    {
        const auto row = static_cast<std::uint32_t>(cache.rows++ * rowLength());
        cache.next.resize(cache.next.size() + rowLength());
        cache.sets.resize(cache.sets.size() + program.words);
        set.save(&cache.sets[cache.sets.size() - program.words]);
        cache.before.push_back(edge);
        return row;
    }

    std::uint32_t rowOf(const Set& set, Edge edge)
    {
        key.resize(program.words);
        set.save(key.data());
        if (cache.table.size() < 2 * cache.rows)
            widenTable();
        std::uint32_t& found = *placeOf(key.data(), edge);
        if (found == unknownRow())
            found = addRow(set, edge);
        return found;
    }

    // Where the set is in the table, or belongs.
    std::uint32_t* placeOf(const std::uint64_t* set, Edge edge)
    {
        std::uint64_t hash = static_cast<std::uint64_t>(edge);
        for (std::size_t i = 0; i < program.words; ++i) {
            hash = (hash ^ set[i]) * 0x9e3779b97f4a7c15;
            hash ^= hash >> 32;
        }
        const std::size_t mask = cache.table.size() - 1;
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            const std::size_t row = cache.table[i] / rowLength();
            if (row == 0 ||
                (cache.before[row] == edge &&
                 std::equal(set, set + program.words, &cache.sets[row * program.words])))
                return &cache.table[i];
        }
    }

    void widenTable()
    {
        cache.table.assign(2 * cache.table.size(), unknownRow());
        for (std::size_t row = initialRow() / rowLength(); row < cache.rows; ++row) {
            const std::uint64_t* set = &cache.sets[row * program.words];
            *placeOf(set, cache.before[row]) = static_cast<std::uint32_t>(row * rowLength());
        }
    }

    const RegexProgram& program;
    DfaCache& cache;
    const Text& text;
    const std::uint8_t* end;  // null until it is known
    const std::uint8_t* at;
    Edge before;  // of `at`
    const std::uint8_t* literalAt = nullptr;

    Set initial;
    Set current;  // complete but for assertions

    std::vector<std::uint64_t> key;
    const std::uint8_t* builtFrom = nullptr;
    bool worthwhile = true;  // to build rows
    bool canSkip = false;    // from the initial row
    std::size_t skips = 0;
    std::size_t skippedBytes = 0;
};

}  // namespace

bool hasMatch(RegexProgram& program, const Text& text)
{
    if (program.matchesAlways)
        return true;
    if (program.states.size() <= mostSmallStates)
        return Search<SmallSet>(program, text).run();
    return Search<LargeSet>(program, text).run();
}

}  // namespace regex
