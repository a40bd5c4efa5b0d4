#include "dump/BerClasses.h"

#include "common/errors.h"
#include "common/shown.h"
#include "common/text.h"
#include "dump/BerView.h"
#include "protocol/Messages.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>

namespace dump {

namespace {

using protocol::Field;
using protocol::Message;
using protocol::Schema;

const Schema& schemaOf(const protocol::Alternative& alternative)
{
    // The table of a class outlives its objects.
    return dynamic_cast<const Message&>(*alternative.make()).schema();
}

std::string typeText(const Field& field)
{
    std::string text = field.kind->description();
    if (field.maxLength != 0)
        text += " of at most " + sizeToString(field.maxLength) + " bytes";
    if (field.minimum != std::numeric_limits<std::int32_t>::min() ||
        field.maximum != std::numeric_limits<std::int32_t>::max())
        text += ' ' + intToString(field.minimum) + " to " + intToString(field.maximum);
    for (std::size_t i = 0; i < field.alternativeCount; ++i) {
        text += (i == 0 ? " of " : ", ") + uintToString(field.alternatives[i].number) + ' ' +
                schemaOf(field.alternatives[i]).name;
    }
    return text;
}

std::string tagsText(protocol::BerTag current, protocol::BerTag old)
{
    return tagText(current) + (old == current ? "" : ", old " + tagText(old));
}

std::string headText(const Schema& schema)
{
    const std::string tags = tagsText(schema.tag(false), schema.tag(true));
    if (schema.fieldCount == 0)
        return tags + ", no fields";
    return tags + ", " + sizeToString(schema.required) + " of " + sizeToString(schema.fieldCount) +
           " fields required";
}

std::string fieldLines(const Schema& schema)
{
    std::size_t width = 0;
    for (std::size_t i = 0; i < schema.fieldCount; ++i)
        width = std::max(width, BerItem{.field = &schema.fields[i], .index = i}.label().size());
    std::string text;
    for (std::size_t i = 0; i < schema.fieldCount; ++i) {
        const Field& field = schema.fields[i];
        const std::string label = BerItem{.field = &field, .index = i}.label();
        text += "    " + label + std::string(width - label.size() + 2, ' ') + typeText(field) +
                (i < schema.required ? "\n" : ", can be absent\n");
    }
    return text;
}

// All classes, each once: the messages in the order in which they are met from the top-level ones,
// then lists, sets and enumerated classes.
class Classes {
public:
    struct Entry {
        std::string name;
        std::string text;  // behind the name, with line ends
    };

    Classes()
    {
        for (const protocol::Alternative& message : protocol::topLevelMessages())
            addMessage(schemaOf(message));
        // More are met meanwhile.
        for (std::size_t i = 0; i < schemas.size(); ++i) {
            for (std::size_t field = 0; field < schemas[i]->fieldCount; ++field)
                addTypeOf(schemas[i]->fields[field]);
        }
        for (const Schema* const schema : schemas)
            entries.push_back({schema->name, headText(*schema) + '\n' + fieldLines(*schema)});
        entries.insert(entries.end(), others.begin(), others.end());
    }

    const Entry& entry(const std::string& name) const
    {
        const auto found = std::find_if(entries.begin(), entries.end(),
                                        [&](const Entry& each) { return each.name == name; });
        if (found == entries.end())
            throw error::EParseError("there is no class '" + shown(name) +
                                     "'; see --classes for all");
        return *found;
    }

    std::vector<Entry> entries;

private:
    void addTypeOf(const Field& field)
    {
        const protocol::FieldKind& kind = *field.kind;
        for (std::size_t i = 0; i < field.alternativeCount; ++i)
            addMessage(schemaOf(field.alternatives[i]));
        if (kind.nested() != nullptr)
            addMessage(*kind.nested());
        if (kind.isEnumerated())
            addOther(kind, tagText(protocol::BE_ENUMERATED) + ", a number");
        if (kind.element() != nullptr) {
            addTypeOf(*kind.element());
            addOther(kind,
                     (kind.isSet() ? tagsText(protocol::BE_SET_CURRENT, protocol::BE_SET_LEGACY)
                                   : tagsText(protocol::BE_SEQ_CURRENT, protocol::BE_SEQ_LEGACY)) +
                         ", any number of " + typeText(*kind.element()));
        }
    }

    void addMessage(const Schema& schema)
    {
        if (std::find(schemas.begin(), schemas.end(), &schema) == schemas.end())
            schemas.push_back(&schema);
    }

    void addOther(const protocol::FieldKind& kind, const std::string& text)
    {
        const std::string name = kind.description();
        if (std::none_of(others.begin(), others.end(),
                         [&](const Entry& each) { return each.name == name; }))
            others.push_back({name, text + '\n'});
    }

    std::vector<const Schema*> schemas;
    std::vector<Entry> others;
};

}  // namespace

void listBerClasses(std::ostream& out, const std::vector<std::string>& wanted)
{
    const Classes classes;
    std::vector<Classes::Entry> listed;
    if (wanted.empty())
        listed = classes.entries;
    for (const std::string& name : wanted)
        listed.push_back(classes.entry(name));
    for (const Classes::Entry& entry : listed)
        out << entry.name << "  " << entry.text;
}

}  // namespace dump
