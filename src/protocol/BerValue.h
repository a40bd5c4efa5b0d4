// The values of the client protocol, in a subset of the Basic Encoding Rules (ITU-T X.690).
//
// BerValue         what all have: a tag, a written form, a comparison
// BerPrimitive     content bytes behind a definite length
// BerConstructed   children up to the end-of-contents bytes: the messages of Message.h
//
// A value can be read and written in two numberings of tags, and every operation that depends on a
// tag is told which: `legacy` is true for peers of the old protocol.
//
// Reading is driven from outside (see BerReader.h). Of a primitive: prepare() with the length,
// append() with the content in pieces, readDone(). Of a constructed one: child() for each child,
// which is then read in the same way, and readDone() at the end.
//
// What is wrong on the wire is an EBer.
#pragma once

#include "common/errors.h"
#include "protocol/BerTag.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace protocol {

class EBer : public error::EParseError {
    using EParseError::EParseError;
};

// Takes the bytes of a value that is being written.
class BerOutput {
public:
    virtual void write(const char* bytes, std::size_t count) = 0;

protected:
    ~BerOutput() = default;
};

class BerValue {
public:
    virtual ~BerValue() = default;
    // A deep copy.
    virtual std::unique_ptr<BerValue> clone() const = 0;
    virtual BerTag tag(bool legacy) const = 0;
    // All content bytes are in. Throws EBer if they are no value.
    virtual void readDone() {}
    // False for a value of another class, all three.
    virtual bool operator==(const BerValue& other) const = 0;
    virtual bool operator<(const BerValue& other) const = 0;
    virtual bool operator>(const BerValue& other) const = 0;
    // Writes tag, length and content. Throws EBer for a value out of its bounds; part of it has
    // been written then.
    virtual void write(BerOutput& output, bool legacy) const = 0;

protected:
    BerValue() = default;
    BerValue(const BerValue&) = default;
    BerValue& operator=(const BerValue&) = default;
};

class BerPrimitive : public BerValue {
public:
    // The length of the content, told before any of it. Throws EBer if it is beyond the maximum,
    // before any memory is taken.
    virtual void prepare(std::size_t length) = 0;
    // The next piece of the content.
    virtual void append(const char* bytes, std::size_t count) = 0;
};

// Frees a value, unless that is only lent.
struct BerChildDeleter {
    BerChildDeleter() = default;
    explicit BerChildDeleter(bool isLent) : lent(isLent) {}
    template <class T>
    BerChildDeleter(
        std::default_delete<T> /*of an owned value*/)  // NOLINT(google-explicit-constructor)
    {}
    void operator()(BerValue* value) const
    {
        if (!lent)
            delete value;
    }

    bool lent = false;
};

// A value for whoever reads a child: a wrapper of its own, or a value that the parent owns.
using BerChild = std::unique_ptr<BerValue, BerChildDeleter>;
inline BerChild lend(BerValue& value)
{
    return {&value, BerChildDeleter(true)};
}

class BerConstructed : public BerValue {
public:
    // A value that will read the child at the position `index`, counted from 0. It may refer to
    // this value, and must not outlive it. Throws EBer if the child can't have the tag.
    virtual BerChild child(std::size_t index, BerTag tag, bool legacy) = 0;
    // How many children a value has at the least. Those behind them can be absent: an older peer
    // doesn't know them.
    virtual std::size_t requiredChildren() const = 0;
    // True for lists and sets, which have any number of children of one kind.
    virtual bool isRepeated() const { return false; }
};

// A factory of top-level messages.
class BerProtocol {
public:
    virtual ~BerProtocol() = default;
    // A new message of the class that has the tag. Throws EBer if none has.
    virtual std::unique_ptr<BerValue> create(BerTag tag, bool legacy) const = 0;
};

// A value that the reader doesn't know, constructed or not as the tag says: it is consumed, with
// all that is in it, and leaves nothing. To compare it by order or to write it is an assertion.
std::unique_ptr<BerValue> makeSkipper(BerTag tag);

class BerPrimitiveSkipper final : public BerPrimitive {
public:
    explicit BerPrimitiveSkipper(BerTag skipped) : skippedTag(skipped) {}
    std::unique_ptr<BerValue> clone() const override;
    BerTag tag(bool /*legacy*/) const override { return skippedTag; }
    bool operator==(const BerValue& other) const override;
    bool operator<(const BerValue& other) const override;
    bool operator>(const BerValue& other) const override;
    void write(BerOutput& output, bool legacy) const override;
    void prepare(std::size_t /*length*/) override {}
    void append(const char* /*bytes*/, std::size_t /*count*/) override {}

private:
    BerTag skippedTag;
};

class BerConstructedSkipper final : public BerConstructed {
public:
    explicit BerConstructedSkipper(BerTag skipped) : skippedTag(skipped) {}
    std::unique_ptr<BerValue> clone() const override;
    BerTag tag(bool /*legacy*/) const override { return skippedTag; }
    bool operator==(const BerValue& other) const override;
    bool operator<(const BerValue& other) const override;
    bool operator>(const BerValue& other) const override;
    void write(BerOutput& output, bool legacy) const override;
    BerChild child(std::size_t index, BerTag tag, bool legacy) override;
    std::size_t requiredChildren() const override { return 0; }
    bool isRepeated() const override { return true; }

private:
    BerTag skippedTag;
};

}  // namespace protocol
