#include "dump/BerWalk.h"

#include "common/text.h"
#include "protocol/BerPrimitives.h"

#include <utility>

namespace dump {

using protocol::BerChild;
using protocol::BerConstructed;
using protocol::BerPrimitive;
using protocol::BerTag;
using protocol::BerValue;
using protocol::Field;
using protocol::Message;

std::string BerItem::label() const
{
    if (isElement)
        return "[" + sizeToString(index) + "]";
    return field != nullptr && field->name != nullptr ? field->name : sizeToString(index);
}

// Passes on what all values do. Readers ask for none of it but the tag.
template <class Base>
class BerWalk::Passing : public Base {
public:
    Passing(const BerWalk& of, BerItem which, BerChild behind)
        : walk(of), item(which), value(std::move(behind))
    {}
    std::unique_ptr<BerValue> clone() const final { return value->clone(); }
    BerTag tag(bool legacy) const final { return value->tag(legacy); }
    bool operator==(const BerValue& other) const final { return *value == other; }
    bool operator<(const BerValue& other) const final { return *value < other; }
    bool operator>(const BerValue& other) const final { return *value > other; }
    void write(protocol::BerOutput& output, bool legacy) const final
    {
        value->write(output, legacy);
    }

protected:
    const BerWalk& walk;
    const BerItem item;
    BerChild value;
};

class BerWalk::PassingPrimitive final : public Passing<BerPrimitive> {
public:
    PassingPrimitive(const BerWalk& of, const BerItem& which, BerChild behind)
        : Passing(of, which, std::move(behind)),
          keepsContent(walk.sink != nullptr &&
                       dynamic_cast<const protocol::BerString*>(value.get()) == nullptr)
    {}

    void prepare(std::size_t length) override { primitive().prepare(length); }
    void append(const char* bytes, std::size_t count) override
    {
        primitive().append(bytes, count);
        if (keepsContent)
            content.append(bytes, count);
    }
    void readDone() override
    {
        value->readDone();
        if (walk.sink != nullptr)
            walk.sink->value(item, *value, content);
        walk.childDone();
    }

private:
    BerPrimitive& primitive() { return static_cast<BerPrimitive&>(*value); }

    const bool keepsContent;
    std::string content;
};

// Reads the elements of a list, each into the list of a message object of its own, so that none
// outlives its reading.
class BerWalk::ListReader {
public:
    ListReader(const Message& message, const BerItem& list)
        : empty(message.clone()), field(*list.field), tag(list.tag)
    {}

    // What the one before refers to goes.
    BerChild element(BerTag elementTag, bool legacy)
    {
        view.reset();
        scratch = empty->clone();
        auto& message = static_cast<Message&>(*scratch);
        view = field.kind->child(field, field.member(message), tag, legacy, message.schema().name);
        return static_cast<BerConstructed&>(*view).child(0, elementTag, legacy);
    }

private:
    std::unique_ptr<BerValue> empty;  // a message in which the list is empty
    const Field& field;
    BerTag tag;
    std::unique_ptr<BerValue> scratch;
    BerChild view;  // of the list in it
};

class BerWalk::PassingConstructed final : public Passing<BerConstructed> {
public:
    PassingConstructed(const BerWalk& of, const BerItem& which, BerChild behind,
                       const Message* around)
        : Passing(of, which, std::move(behind))
    {
        if (around != nullptr && item.field != nullptr && item.field->kind->element() != nullptr)
            list = std::make_unique<ListReader>(*around, item);
        walk.begin(item);
    }

    BerChild child(std::size_t index, BerTag tag, bool legacy) override
    {
        BerItem next{.tag = tag, .index = index};
        if (list)
            next.field = item.field->kind->element();
        else if (item.schema != nullptr && index < item.schema->fieldCount)
            next.field = &item.schema->fields[index];
        next.isElement = list != nullptr;
        walk.levels.back().child = next;
        BerChild read = list ? list->element(tag, legacy) : constructed().child(index, tag, legacy);
        const auto* const message = dynamic_cast<const Message*>(read.get());
        if (message != nullptr)
            next.schema = &message->schema();
        return walk.pass(next, std::move(read), item.schema != nullptr ? &asMessage() : nullptr);
    }
    std::size_t requiredChildren() const override { return constructed().requiredChildren(); }
    bool isRepeated() const override { return constructed().isRepeated(); }
    void readDone() override
    {
        value->readDone();
        walk.end();
    }

private:
    BerConstructed& constructed() const { return static_cast<BerConstructed&>(*value); }
    // Of an item with a schema.
    const Message& asMessage() const { return static_cast<const Message&>(*value); }

    std::unique_ptr<ListReader> list;  // null unless it is one
};

std::unique_ptr<BerValue> BerWalk::create(BerTag tag, bool legacy) const
{
    levels.clear();
    std::unique_ptr<BerValue> message = messages.create(tag, legacy);
    BerItem item{.tag = tag};
    if (const auto* const known = dynamic_cast<const Message*>(message.get()))
        item.schema = &known->schema();
    return std::make_unique<PassingConstructed>(*this, item, std::move(message), nullptr);
}

BerPlace BerWalk::place() const
{
    BerPlace place;
    for (const Level& level : levels) {
        if (place.message == nullptr)
            place.message = level.item.schema;
        if (level.item.schema != nullptr)
            place.owner = level.item.schema;
        if (!level.child)
            continue;
        if (!place.field.empty() && !level.child->isElement)
            place.field += '.';
        place.field += level.child->label();
    }
    return place;
}

BerChild BerWalk::pass(const BerItem& item, BerChild value, const Message* around) const
{
    if (dynamic_cast<const BerConstructed*>(value.get()) != nullptr)
        return std::make_unique<PassingConstructed>(*this, item, std::move(value), around);
    return std::make_unique<PassingPrimitive>(*this, item, std::move(value));
}

void BerWalk::begin(const BerItem& item) const
{
    levels.push_back({item, std::nullopt});
    if (sink != nullptr)
        sink->begin(item);
}

void BerWalk::end() const
{
    levels.pop_back();
    if (sink != nullptr)
        sink->end();
    if (!levels.empty())
        childDone();
}

void BerWalk::childDone() const
{
    Level& level = levels.back();
    const protocol::Schema* const schema = level.item.schema;
    const std::size_t next = level.child->index + 1;
    if (schema != nullptr && next < schema->fieldCount)
        level.child = BerItem{.field = &schema->fields[next], .index = next};
    else
        level.child.reset();
}

}  // namespace dump
