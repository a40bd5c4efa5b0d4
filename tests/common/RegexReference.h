// A matcher of regular expressions that is slow and obviously right: the definition, run.
//
// It makes up patterns of its own, as trees and as text at once, out of the choices that it is
// given, and so needs no parser. Every part of a tree gives all the ways in which it can match
// from a place on, the best first: the longest, and of those the one whose first part is longest,
// and so on.
#pragma once

#include "common/regex.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

class RegexReference {
public:
    struct TooMuchWork {};                   // thrown by match()
    using Choose = std::function<int(int)>;  // choose(n) gives a number below n

    std::string pattern;
    std::size_t groups = 0;

    // A pattern of so many pieces at most, of the first ones in `kinds`.
    RegexReference(int theFlags, int mostPieces, int mostKinds, const Choose& choose)
        : flags(theFlags), left(mostPieces), root(makeChoice(choose, mostKinds))
    {}

    // Start and end of the match, then of each group; empty if there is no match.
    std::vector<int> match(std::string_view theText, int theMatchFlags)
    {
        text = theText;
        matchFlags = theMatchFlags;
        work = 0;
        Ways all;
        for (int start = 0; all.empty() && start <= static_cast<int>(text.size()); ++start) {
            Way from(2 * groups + 2, -1);
            from[0] = from[1] = start;
            all = ways(root, from);
        }
        return all.empty() ? Way() : all[0];
    }

private:
    using Way = std::vector<int>;
    using Ways = std::vector<Way>;
    static constexpr int end = 1;  // of a way: the place that has been reached

    struct Part {
        char kind;  // one of `kinds`; "|", "&" for a sequence, "{" for a repetition
        std::vector<Part> parts = {};
        std::size_t group = 0;   // its number; in a repetition, the first one inside
        std::size_t behind = 0;  // behind the last group inside
        int least = 0, most = 0;
    };

    static constexpr std::string_view kinds = "a(b.^$x<>";
    static constexpr const char* shown[] = {"a", "(",     "b",       ".",      "^",
                                            "$", "[^aB]", "[[:<:]]", "[[:>:]]"};

    Part makeChoice(const Choose& choose, int mostKinds)
    {
        Part part{'|', {{'&'}}};
        for (int next = 1; next != 0; next = left == 0 ? 0 : choose(4)) {
            if (next == 3) {
                pattern += "|";
                part.parts.push_back({'&'});
            }
            part.parts.back().parts.push_back(makePiece(choose, mostKinds));
        }
        return part;
    }

    Part makePiece(const Choose& choose, int mostKinds)
    {
        const int kind = choose(mostKinds);
        Part part{kinds[left > 1 || kinds[kind] != '(' ? kind : 0]};
        --left;
        part.group = groups + 1;
        pattern += shown[kinds.find(part.kind)];
        if (part.kind == '(') {
            ++groups;
            part.parts.push_back(choose(4) == 3 ? Part{'&'} : makeChoice(choose, mostKinds));
            pattern += ")";
        }
        static constexpr int bounds[][2] = {{1, 1}, {0, 999}, {2, 999}, {0, 1}, {1, 2}};
        static constexpr const char* signs[] = {"", "*", "{2,}", "?", "{1,2}"};
        const int chosen = part.kind == '^' ? 0 : choose(5);
        pattern += signs[chosen];
        return {'{', {part}, part.group, groups + 1, bounds[chosen][0], bounds[chosen][1]};
    }

    // Of a piece that stands for a byte, or for a place between bytes.
    bool holds(char kind, int place) const
    {
        const auto byte = [&](int i) {
            return static_cast<unsigned char>(text[i]);
        };
        const int before = place == 0 ? EOF : byte(place - 1);
        const int after = place == static_cast<int>(text.size()) ? EOF : byte(place);
        const char line = (flags & REG_NEWLINE) != 0 ? '\n' : '\0';
        const bool fold = (flags & REG_ICASE) != 0;
        const int c = fold ? std::tolower(after) : after;
        if (kind == '^')
            return before == EOF ? (matchFlags & REG_NOTBOL) == 0 : before == line;
        if (kind == '$')
            return after == EOF ? (matchFlags & REG_NOTEOL) == 0 : after == line;
        if (kind == '<' || kind == '>')
            return !std::isalnum(kind == '<' ? before : after) &&
                   std::isalnum(kind == '<' ? after : before);
        if (kind == '.' || kind == 'x')
            return after != EOF && after != line &&
                   (kind == '.' || (c != 'a' && c != (fold ? 'b' : 'B')));
        return c == kind;
    }

    Ways ways(const Part& part, const Way& from)
    {
        if (++work > 20000)
            throw TooMuchWork{};
        Ways out;
        if (part.kind == '|') {
            for (const Part& one : part.parts)
                append(&out, ways(one, from));
        } else if (part.kind == '&') {
            out = {from};
            for (const Part& one : part.parts) {
                for (const Way& way : std::exchange(out, {}))
                    append(&out, ways(one, way));
            }
        } else if (part.kind == '(') {
            out = ways(part.parts[0], from);
            for (Way& way : out)
                std::tie(way[2 * part.group], way[2 * part.group + 1]) =
                    std::pair(from[end], way[end]);
        } else if (part.kind == '{') {
            addTurns(part, from, 0, &out);
        } else if (holds(part.kind, from[end])) {
            out = {from};
            out[0][end] += std::string_view("^$<>").find(part.kind) == std::string_view::npos;
        }
        std::ranges::stable_sort(out, std::greater<>(), [](const Way& way) { return way[end]; });
        return out;
    }

    // A turn is better than none, an empty one only where one is missing. It starts without the
    // groups of the one before.
    void addTurns(const Part& part, const Way& from, int turns, Ways* out)
    {
        Way clean = from;
        std::fill(clean.begin() + 2 * part.group, clean.begin() + 2 * part.behind, -1);
        for (const Way& way : turns < part.most ? ways(part.parts[0], clean) : Ways()) {
            if (way[end] > from[end] || turns < part.least)
                addTurns(part, way, turns + 1, out);
            else if (turns == 0)
                append(out, {way});
        }
        if (turns >= part.least)
            append(out, {from});
    }

    static void append(Ways* all, const Ways& more)
    {
        std::ranges::copy_if(more, std::back_inserter(*all), [&](const Way& way) {
            return std::ranges::find(*all, way) == all->end();
        });
    }

    int flags, left;
    Part root;
    std::string_view text;
    int matchFlags = 0, work = 0;
};
