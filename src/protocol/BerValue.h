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

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace protocol {

class EBer : public error::EParseError {
    using EParseError::EParseError;
};

// Takes the bytes of a value that is being written.
//
// A derived class may lend an area of memory to be filled without a call: `next` to `limit`. write()
// is called for what the rest of it has no room for, and for all bytes if there is none.
class BerOutput {
public:
    virtual void write(const char* bytes, std::size_t count) = 0;

    // As write(), but into the area if that has room.
    void put(const char* bytes, std::size_t count)
    {
        if (count > room())
            write(bytes, count);
        else
            next = std::copy_n(bytes, count, next);
    }
    [[gnu::always_inline]] void putTwo(char first, char second)
    {
        if (room() < 2) {
            writeTwo(first, second);
            return;
        }
        next[0] = first;
        next[1] = second;
        next += 2;
    }
    // For what is put together in place: where `shortMost` bytes can go. finish() takes those that
    // did, before anything else is put.
    static constexpr std::size_t shortMost = 80;
    char* begin() { return room() >= shortMost ? next : scratch; }
    void finish(char* begun, char* behind)
    {
        if (begun == next)
            next = behind;
        else
            put(begun, static_cast<std::size_t>(behind - begun));
    }

protected:
    BerOutput() = default;
    BerOutput(const BerOutput&) = delete;
    BerOutput& operator=(const BerOutput&) = delete;
    ~BerOutput() = default;

    char* next = nullptr;
    char* limit = nullptr;

private:
    std::size_t room() const { return static_cast<std::size_t>(limit - next); }
    void writeTwo(char first, char second);

    char scratch[shortMost];
};

// The content of a constructed value has no length: it stands between these two.
[[gnu::always_inline]] inline void beginConstructed(BerOutput& output, BerTag tag)
{
    if (tag < 31 * 8) {
        output.putTwo(shortTag(tag), '\x80');
    } else {
        writeTag(output, tag);
        output.put("\x80", 1);
    }
}
[[gnu::always_inline]] inline void endContents(BerOutput& output)
{
    output.putTwo('\0', '\0');
}

class BerValue {
public:
    // Memory of values that are gone is kept for the next ones, up to a bound.
    static void* operator new(std::size_t size);
    static void operator delete(void* memory, std::size_t size);
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

    // Whether this is a BerConstructed, as opposed to a BerPrimitive: there are no others.
    bool hasChildren() const { return constructed; }

private:
    friend class BerPrimitive;
    friend class BerConstructed;
    explicit BerValue(bool isConstructed) : constructed(isConstructed) {}

    bool constructed;

protected:
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

protected:
    BerPrimitive() : BerValue(false) {}
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
    // Reads a primitive child whose content is there as a whole, as child() and what that gives
    // would do. False if it wasn't read, for whatever reason: child() says what is wrong.
    virtual bool readChild(std::size_t /*index*/, BerTag /*tag*/, bool /*legacy*/,
                           std::string_view /*content*/)
    {
        return false;
    }

protected:
    BerConstructed() : BerValue(true) {}
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
