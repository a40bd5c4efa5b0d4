// Bracket expressions: "[a-z]", "[^[:digit:]_]", "[[.hyphen.]]", "[[=a=]]".
//
// In the C locale an element is a byte, an equivalence class holds one element, and ranges go by
// byte values. Elements have the names of the POSIX portable character set (XBD 6.1) besides
// themselves.

#include "common/regex.h"
#include "common/regexProgram.h"

#include <cctype>

namespace regex {
namespace {

struct ClassName {
    std::string_view name;
    int (*holds)(int);
};

const ClassName classNames[] = {
    {"alnum", std::isalnum}, {"alpha", std::isalpha}, {"blank", std::isblank},
    {"cntrl", std::iscntrl}, {"digit", std::isdigit}, {"graph", std::isgraph},
    {"lower", std::islower}, {"print", std::isprint}, {"punct", std::ispunct},
    {"space", std::isspace}, {"upper", std::isupper}, {"xdigit", std::isxdigit},
};

struct ElementName {
    std::string_view name;
    char element;
};

constexpr ElementName elementNames[] = {
    {"NUL", '\0'},
    {"SOH", '\x01'},
    {"STX", '\x02'},
    {"ETX", '\x03'},
    {"EOT", '\x04'},
    {"ENQ", '\x05'},
    {"ACK", '\x06'},
    {"BEL", '\a'},
    {"alert", '\a'},
    {"BS", '\b'},
    {"backspace", '\b'},
    {"HT", '\t'},
    {"tab", '\t'},
    {"LF", '\n'},
    {"newline", '\n'},
    {"VT", '\v'},
    {"vertical-tab", '\v'},
    {"FF", '\f'},
    {"form-feed", '\f'},
    {"CR", '\r'},
    {"carriage-return", '\r'},
    {"SO", '\x0e'},
    {"SI", '\x0f'},
    {"DLE", '\x10'},
    {"DC1", '\x11'},
    {"DC2", '\x12'},
    {"DC3", '\x13'},
    {"DC4", '\x14'},
    {"NAK", '\x15'},
    {"SYN", '\x16'},
    {"ETB", '\x17'},
    {"CAN", '\x18'},
    {"EM", '\x19'},
    {"SUB", '\x1a'},
    {"ESC", '\x1b'},
    {"IS4", '\x1c'},
    {"FS", '\x1c'},
    {"IS3", '\x1d'},
    {"GS", '\x1d'},
    {"IS2", '\x1e'},
    {"RS", '\x1e'},
    {"IS1", '\x1f'},
    {"US", '\x1f'},
    {"space", ' '},
    {"exclamation-mark", '!'},
    {"quotation-mark", '"'},
    {"number-sign", '#'},
    {"dollar-sign", '$'},
    {"percent-sign", '%'},
    {"ampersand", '&'},
    {"apostrophe", '\''},
    {"left-parenthesis", '('},
    {"right-parenthesis", ')'},
    {"asterisk", '*'},
    {"plus-sign", '+'},
    {"comma", ','},
    {"hyphen", '-'},
    {"hyphen-minus", '-'},
    {"period", '.'},
    {"full-stop", '.'},
    {"slash", '/'},
    {"solidus", '/'},
    {"zero", '0'},
    {"one", '1'},
    {"two", '2'},
    {"three", '3'},
    {"four", '4'},
    {"five", '5'},
    {"six", '6'},
    {"seven", '7'},
    {"eight", '8'},
    {"nine", '9'},
    {"colon", ':'},
    {"semicolon", ';'},
    {"less-than-sign", '<'},
    {"equals-sign", '='},
    {"greater-than-sign", '>'},
    {"question-mark", '?'},
    {"commercial-at", '@'},
    {"left-square-bracket", '['},
    {"backslash", '\\'},
    {"reverse-solidus", '\\'},
    {"right-square-bracket", ']'},
    {"circumflex", '^'},
    {"circumflex-accent", '^'},
    {"underscore", '_'},
    {"low-line", '_'},
    {"grave-accent", '`'},
    {"left-brace", '{'},
    {"left-curly-bracket", '{'},
    {"vertical-line", '|'},
    {"right-brace", '}'},
    {"right-curly-bracket", '}'},
    {"tilde", '~'},
    {"DEL", '\x7f'},
};

class BracketParser {
public:
    BracketParser(std::string_view thePattern, std::size_t start) : pattern(thePattern), at(start)
    {}

    std::size_t position() const { return at; }

    ByteSet read(int cflags)
    {
        const bool inverted = take('^');
        // In the first place, "]" stands for itself.
        do {
            readItem();
        } while (!startsWith("]"));
        ++at;

        if ((cflags & REG_ICASE) != 0) {
            for (int byte = 'A'; byte <= 'Z'; ++byte) {
                const int small = std::tolower(byte);
                if (set.has(byte) || set.has(small)) {
                    set.add(byte);
                    set.add(small);
                }
            }
        }
        if (inverted)
            set.invert();
        if ((cflags & REG_NEWLINE) != 0)
            set.remove('\n');
        return set;
    }

private:
    bool startsWith(std::string_view text) const { return pattern.substr(at).starts_with(text); }
    bool take(char c)
    {
        if (at == pattern.size() || pattern[at] != c)
            return false;
        ++at;
        return true;
    }

    // The text of "[:text:]" and its like; `at` is behind the opening pair. One character at
    // least belongs to it, so that "[.].]" and "[=.=]" name those.
    std::string_view readName(char mark)
    {
        const char closing[] = {mark, ']'};
        const std::size_t from = startsWith({closing, 2}) ? at : at + 1;
        const std::size_t end = pattern.find(std::string_view(closing, 2), from);
        if (end == std::string_view::npos)
            throw Refusal{REG_EBRACK};
        const std::string_view name = pattern.substr(at, end - at);
        at = end + 2;
        return name;
    }

    std::uint8_t readElementName(char mark)
    {
        const std::string_view name = readName(mark);
        if (name.size() == 1)
            return static_cast<std::uint8_t>(name[0]);
        for (const ElementName& known : elementNames) {
            if (known.name == name)
                return static_cast<std::uint8_t>(known.element);
        }
        throw Refusal{REG_ECOLLATE};
    }

    void readClass()
    {
        const std::string_view name = readName(':');
        for (const ClassName& known : classNames) {
            if (known.name != name)
                continue;
            for (int byte = 0; byte < 256; ++byte) {
                if (known.holds(byte) != 0)
                    set.add(byte);
            }
            return;
        }
        throw Refusal{REG_ECTYPE};
    }

    // One end of a range, or an element by itself.
    std::uint8_t readElement()
    {
        if (at == pattern.size())
            throw Refusal{REG_EBRACK};
        if (startsWith("[.")) {
            at += 2;
            return readElementName('.');
        }
        if (startsWith("[:") || startsWith("[="))
            throw Refusal{REG_ERANGE};  // a class has no place in an order
        return static_cast<std::uint8_t>(pattern[at++]);
    }

    bool atRange() const { return startsWith("-") && !startsWith("-]"); }

    void readItem()
    {
        if (startsWith("[:")) {
            at += 2;
            readClass();
        } else if (startsWith("[=")) {
            at += 2;
            set.add(readElementName('='));
        } else {
            const std::uint8_t low = readElement();
            const bool isRange = atRange();
            if (isRange)
                ++at;
            const std::uint8_t high = isRange ? readElement() : low;
            if (low > high)
                throw Refusal{REG_ERANGE};
            for (int byte = low; byte <= high; ++byte)
                set.add(byte);
        }
        // What is left is a range that starts with a class or with another range.
        if (atRange())
            throw Refusal{REG_ERANGE};
    }

    std::string_view pattern;
    std::size_t at;
    ByteSet set;
};

}  // namespace

ByteSet parseBracket(std::string_view pattern, std::size_t* at, int cflags)
{
    BracketParser parser(pattern, *at);
    const ByteSet set = parser.read(cflags);
    *at = parser.position();
    return set;
}

}  // namespace regex
