// Tells what is in messages while protocol::BerReader reads them.
//
//     BerWalk walk(protocol::guiProtocol(), &sink);
//     protocol::BerReader reader(walk, false);
//
// A walk is the reader's factory. Between the reader and each value it puts one that passes
// everything on and tells the sink. So what is good and what is bad, and in which words, is the
// business of the reader and of the values alone, and a sink learns what a message object doesn't
// keep: which fields were absent, and what stood behind the known ones.
//
// Elements of lists are gone when they have been told, so a walk takes no more memory than the
// largest message without its lists.
#pragma once

#include "protocol/Message.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dump {

// A value, when its tag has been read.
struct BerItem {
    protocol::BerTag tag = 0;
    const protocol::Schema* schema = nullptr;  // of a message of any class; null for other values
    const protocol::Field* field = nullptr;    // null for what the schema doesn't know
    std::size_t index = 0;                     // in the value around it
    bool isElement = false;                    // of a list or set

    // "value", or "3" without a name; of an element "[3]".
    std::string label() const;
};

// Is told what a walk meets, in the order of the bytes. A walk that fails ends without the closing
// calls.
class BerSink {
public:
    virtual ~BerSink() = default;
    // A message, a list or set, or a constructed value that the schema doesn't know; then what is
    // in it, then end(). The first is the top-level message, the only one without a field that has
    // a schema.
    virtual void begin(const BerItem& item) = 0;
    virtual void end() = 0;
    // Any other value: one of BerPrimitives.h, whole, or a BerPrimitiveSkipper. `content` is what
    // was between its length and its end, empty for texts.
    virtual void value(const BerItem& item, const protocol::BerValue& value,
                       std::string_view content) = 0;
};

// Where in a message something is.
struct BerPlace {
    const protocol::Schema* message = nullptr;  // the top-level one; null: none has begun
    const protocol::Schema* owner = nullptr;    // the innermost around the field; maybe the same
    // The way there: "req.pattern.3[0].1". Empty for what belongs to the message itself.
    std::string field;
};

class BerWalk final : public protocol::BerProtocol {
public:
    // Neither is owned. Without a sink, the walk is good for its place.
    explicit BerWalk(const protocol::BerProtocol& factory, BerSink* told = nullptr)
        : messages(factory), sink(told)
    {}

    std::unique_ptr<protocol::BerValue> create(protocol::BerTag tag, bool legacy) const override;
    // Of the value being read; between two of them, of the next one if it is known which that is,
    // otherwise of the value around it.
    BerPlace place() const;

private:
    template <class Base>
    class Passing;
    class PassingPrimitive;
    class PassingConstructed;
    class ListReader;

    // A constructed value that has begun and hasn't ended.
    struct Level {
        BerItem item;
        std::optional<BerItem> child;  // in progress, or next
    };

    protocol::BerChild pass(const BerItem& item, protocol::BerChild value,
                            const protocol::Message* around) const;
    void begin(const BerItem& item) const;
    void end() const;
    void childDone() const;

    const protocol::BerProtocol& messages;
    BerSink* sink;
    mutable std::vector<Level> levels;  // the message first; a reader has its factory const
};

}  // namespace dump
