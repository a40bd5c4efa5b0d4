#include "dump/BerView.h"

#include "common/shown.h"
#include "common/text.h"
#include "dump/BytesAround.h"
#include "dump/Value.h"
#include "protocol/BerPrimitives.h"
#include "protocol/BerReader.h"
#include "protocol/Messages.h"

#include <deque>
#include <functional>
#include <utility>
#include <vector>

namespace dump {

namespace {

// How much is shown of a bad message, and of each text in it.
constexpr std::size_t linesInFront = 6;
constexpr std::size_t longestText = 64;
// And of a value that the schema doesn't know, in the text form.
constexpr std::size_t unknownBytes = 16;

constexpr const char nanContent[] = "\x60";

template <class T>
std::string fixedSizeText(queues::WireType::Form form, T value)
{
    const queues::WireType type = {.form = form};
    return jsonValue(type, {reinterpret_cast<const char*>(&value), sizeof value});
}

// What was sent: a reader takes NaN for 0.
std::string realText(const protocol::BerReal& real, std::string_view content)
{
    return content == nanContent ? "\"nan\""
                                 : fixedSizeText(queues::WireType::Form::real, real.get());
}

// JSON of any value but texts and those that are unknown.
std::string plainText(const protocol::BerValue& value, std::string_view content)
{
    using namespace protocol;
    if (const auto* const int32 = dynamic_cast<const BerIntegerTemplate<std::int32_t>*>(&value))
        return intToString(int32->get());
    if (const auto* const uint32 = dynamic_cast<const BerIntegerTemplate<std::uint32_t>*>(&value))
        return uintToString(uint32->get());
    if (const auto* const int64 = dynamic_cast<const BerIntegerTemplate<std::int64_t>*>(&value))
        return int64ToString(int64->get());
    if (const auto* const uint64 = dynamic_cast<const BerIntegerTemplate<std::uint64_t>*>(&value))
        return uint64ToString(uint64->get());
    if (const auto* const enumerated = dynamic_cast<const BerEnumerated*>(&value))
        return intToString(enumerated->get());
    if (const auto* const boolean = dynamic_cast<const BerBoolean*>(&value))
        return boolean->get() ? "true" : "false";
    if (const auto* const bignum = dynamic_cast<const BerBigNum*>(&value))
        return '"' + bignum->get().toString() + '"';
    if (const auto* const real = dynamic_cast<const BerReal*>(&value))
        return realText(*real, content);
    return "null";
}

// Of a value in a variant, which can be one of these.
const char* variantType(const protocol::BerValue& value)
{
    if (dynamic_cast<const protocol::BerString*>(&value) != nullptr)
        return "text";
    if (dynamic_cast<const protocol::BerReal*>(&value) != nullptr)
        return "real";
    return dynamic_cast<const protocol::BerNull*>(&value) != nullptr ? "null" : "int32";
}

bool isVariant(const BerItem& item)
{
    return item.field != nullptr && item.field->kind == &protocol::fieldKind<protocol::VariantKind>;
}

// What kind of value it is, for people.
std::string kindText(const BerItem& item)
{
    if (item.field == nullptr)
        return "unknown, " + tagText(item.tag);
    const bool isUnion = item.field->alternativeCount != 0 && item.schema != nullptr;
    return item.field->kind->description() + (isUnion ? std::string(" ") + item.schema->name : "");
}

class TextTree final : public BerSink {
public:
    // Takes a line without its end, fit for a terminal.
    using Taker = std::function<void(const std::string&)>;
    // `heading` stands in front of the message's class. Texts are cut behind so many bytes.
    TextTree(Taker taker, std::string heading, std::size_t textBytes)
        : take(std::move(taker)), start(std::move(heading)), textLimit(textBytes)
    {}

    void begin(const BerItem& item) override
    {
        if (levels.empty()) {
            line(start + item.schema->name);
        } else {
            flush();
            pending = startOf(item);
        }
        levels.push_back({item.schema});
    }

    void end() override
    {
        const Level& level = levels.back();
        const std::size_t known = level.schema == nullptr ? 0 : level.schema->fieldCount;
        for (std::size_t i = level.values; i < known; ++i)
            line(startOf({.field = &level.schema->fields[i], .index = i}) + ", absent");
        if (!pending.empty())
            pending += " (empty)";
        flush();
        levels.pop_back();
        if (!levels.empty())
            ++levels.back().values;
    }

    void value(const BerItem& item, const protocol::BerValue& value,
               std::string_view content) override
    {
        std::string text;
        if (item.field == nullptr) {
            text = unknownText(content);
        } else {
            text = isVariant(item) ? std::string(" ") + variantType(value) : "";
            const auto* const string = dynamic_cast<const protocol::BerString*>(&value);
            if (string != nullptr)
                text += " " + quoted(string->text());
            else if (text != " null")
                text += " " + unquoted(plainText(value, content));
        }
        line(startOf(item) + text);
        ++levels.back().values;
    }

    // Of a walk that has failed.
    void flush()
    {
        if (!pending.empty())
            take(std::exchange(pending, ""));
    }

private:
    struct Level {
        const protocol::Schema* schema;
        std::size_t values = 0;
    };

    std::string startOf(const BerItem& item) const
    {
        return std::string(2 * levels.size(), ' ') + item.label() + ": " + kindText(item);
    }

    void line(const std::string& text)
    {
        flush();
        take(text);
    }

    std::string quoted(const std::string& text) const
    {
        if (text.size() <= textLimit)
            return printable(quoteString(text));
        return printable(quoteString(text.substr(0, textLimit))) + "... (" +
               sizeToString(text.size()) + " bytes)";
    }

    static std::string unquoted(const std::string& json)
    {
        return json.front() == '"' ? json.substr(1, json.size() - 2) : json;
    }

    static std::string unknownText(std::string_view content)
    {
        std::string text =
            ", " + sizeToString(content.size()) + (content.size() == 1 ? " byte" : " bytes");
        if (!content.empty())
            text += ": " + hexBytes(content.substr(0, unknownBytes), " ");
        return text + (content.size() > unknownBytes ? " ..." : "");
    }

    Taker take;
    std::string start;
    std::size_t textLimit;
    std::vector<Level> levels;
    std::string pending;  // the line of what has begun last, until it shows whether it is empty
};

class JsonTree final : public BerSink {
public:
    // `members` go in front of those of the message.
    JsonTree(std::ostream& stream, std::string members) : out(stream), leading(std::move(members))
    {}

    void begin(const BerItem& item) override
    {
        key(item);
        if (item.schema != nullptr) {
            out << "{" << leading << R"("class":")" << item.schema->name << '"';
            if (levels.empty())
                out << R"(,"tag":)" << uintToString(item.tag);
            leading.clear();
            out << R"(,"fields":{)";
            levels.push_back({"}}"});
        } else if (item.field != nullptr) {
            out << '[';
            levels.push_back({"]"});
        } else {
            out << R"({"unknownTag":)" << uintToString(item.tag) << R"(,"children":[)";
            levels.push_back({"]}"});
        }
    }

    void end() override
    {
        out << levels.back().closing;
        levels.pop_back();
    }

    void value(const BerItem& item, const protocol::BerValue& value,
               std::string_view content) override
    {
        key(item);
        if (item.field == nullptr) {
            out << R"({"unknownTag":)" << uintToString(item.tag) << R"(,"hex":")"
                << hexBytes(content) << "\"}";
            return;
        }
        const auto* const string = dynamic_cast<const protocol::BerString*>(&value);
        const std::string text =
            string != nullptr ? jsonText(string->text()) : plainText(value, content);
        if (isVariant(item))
            out << R"({"type":")" << variantType(value) << R"(","value":)" << text << "}";
        else
            out << text;
    }

private:
    struct Level {
        std::string_view closing;
        std::size_t values = 0;
    };

    void key(const BerItem& item)
    {
        if (levels.empty())
            return;
        out << (levels.back().values++ == 0 ? "" : ",");
        if (levels.back().closing == "}}")
            out << '"' << item.label() << "\":";
    }

    std::ostream& out;
    std::string leading;
    std::vector<Level> levels;
};

class TextView final : public BerView {
public:
    using BerView::BerView;

    void message(std::uint64_t offset, std::string_view bytes) override
    {
        const std::string heading =
            "offset " + offsetText(offset) + ", " + sizeToString(bytes.size()) + " bytes, ";
        TextTree tree([this](const std::string& line) { out << line << '\n'; }, heading,
                      std::string::npos);
        walk(bytes, &tree);
        out << '\n';
    }
};

class JsonView final : public BerView {
public:
    using BerView::BerView;

    void message(std::uint64_t offset, std::string_view bytes) override
    {
        JsonTree tree(out, R"("offset":)" + uint64ToString(offset) + R"(,"size":)" +
                               sizeToString(bytes.size()) + ",");
        walk(bytes, &tree);
        out << '\n';
    }

    void bad(const BadMessage& bad) override
    {
        out << R"({"error":)" << jsonText(bad.why) << R"(,"offset":)" << uint64ToString(bad.offset)
            << R"(,"fieldOffset":)" << uint64ToString(bad.badOffset) << R"(,"class":)"
            << nameOf(bad.place.message) << R"(,"field":)"
            << (bad.place.field.empty() ? "null" : jsonText(bad.place.field)) << R"(,"fieldOf":)"
            << nameOf(bad.place.owner) << "}\n";
        BerView::bad(bad);
    }

private:
    static std::string nameOf(const protocol::Schema* schema)
    {
        return schema == nullptr ? "null" : jsonText(schema->name);
    }
};

bool isGood(std::string_view bytes, bool legacy)
{
    const BerWalk walk(protocol::guiProtocol());
    try {
        protocol::BerReader(walk, legacy).read(&bytes);
        return true;
    } catch (const protocol::EBer&) {
        return false;
    }
}

}  // namespace

void BerView::bad(const BadMessage& bad)
{
    out.flush();
    err << "ber-dump: the message at offset " << offsetText(bad.offset)
        << (bad.cut ? " is cut off: " : " can't be understood: ");
    if (bad.place.message != nullptr)
        err << bad.place.message->name << ", ";
    if (!bad.place.field.empty()) {
        err << "field " << bad.place.field;
        if (bad.place.owner != bad.place.message)
            err << ", of " << bad.place.owner->name << ',';
        err << ' ';
    }
    err << "at offset " << offsetText(bad.badOffset) << ": " << printable(bad.why) << '\n'
        << linesBefore(bad) << "bytes there:\n"
        << bytesAround(bad.bytes, bad.offset, bad.badOffset);
    if (!bad.cut)
        err << "Messages don't tell their length, so nothing behind this one can be understood.\n";
    if (!bad.cut && isGood(bad.bytes, !legacy))
        err << "In the " << (legacy ? "current" : "old") << " numbering these bytes are good: try "
            << (legacy ? "without" : "with") << " --legacy.\n";
    err << std::flush;
}

void BerView::walk(std::string_view bytes, BerSink* sink) const
{
    const BerWalk factory(protocol::guiProtocol(), sink);
    try {
        protocol::BerReader(factory, legacy).read(&bytes);
    } catch (const protocol::EBer&) {
        // It is known to be bad: what was read up to there is what is wanted.
    }
}

std::string BerView::linesBefore(const BadMessage& bad) const
{
    std::deque<std::string> lines;
    bool more = false;
    TextTree tree(
        [&](const std::string& line) {
            lines.push_back(line);
            if (lines.size() > linesInFront) {
                lines.pop_front();
                more = true;
            }
        },
        "", longestText);
    walk(bad.bytes, &tree);
    tree.flush();
    std::string text = lines.empty() ? "" : "read of it:\n";
    if (more)
        text += "  ...\n";
    for (const std::string& line : lines)
        text += "  " + line + "\n";
    return text;
}

std::unique_ptr<BerView> makeBerView(bool json, std::ostream& out, std::ostream& err, bool legacy)
{
    if (json)
        return std::make_unique<JsonView>(out, err, legacy);
    return std::make_unique<TextView>(out, err, legacy);
}

std::string tagText(protocol::BerTag tag)
{
    static constexpr const char* classes[] = {"universal", "application", "context", "private"};
    return "tag " + uintToString(tag) + " (" + classes[tag >> 1U & 3U] + " " +
           uintToString(tag >> 3U) + ")";
}

}  // namespace dump
