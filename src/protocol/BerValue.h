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
//
// Whoever writes carries the place of the next byte along, so that it stays in a register:
//
//     char* to = output.begin();
//     to = putTag(output.reserve(to), tag);
//     to = output.put(to, text.data(), text.size());
//     output.end(to);
//
// Before another writer begins, or an exception leaves, the one before has to end.
class BerOutput {
public:
    virtual void write(const char* bytes, std::size_t count) = 0;

    char* begin()
    {
        const bool hasRoom = room() >= roomAtOnce;
        stop = hasRoom ? limit : scratch + sizeof scratch;
        return hasRoom ? next : scratch;
    }
    // Takes all bytes before `to`.
    void end(char* to)
    {
        if (stop == limit)
            next = to;
        else
            take(scratch, static_cast<std::size_t>(to - scratch));
    }
    // A place with room for `roomAtOnce` bytes, for those that follow `to`. What is in the room
    // and not put means nothing: it may be written over, too.
    static constexpr std::size_t roomAtOnce = 144;
    [[gnu::always_inline]] char* reserve(char* to)
    {
        return static_cast<std::size_t>(stop - to) >= roomAtOnce ? to : makeRoom(to);
    }
    // Any number of bytes. Gives the place behind them.
    char* put(char* to, const char* bytes, std::size_t count)
    {
        if (count > static_cast<std::size_t>(stop - to))
            return putBeyond(to, bytes, count);
        return std::copy_n(bytes, count, to);
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
    void take(const char* bytes, std::size_t count);
    char* makeRoom(char* to);
    char* putBeyond(char* to, const char* bytes, std::size_t count);

    char* stop = nullptr;  // of where a writer writes: the area, or `scratch` if that is too small
    char scratch[2 * roomAtOnce];
};

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
    // As write(), by a writer that has begun and carries on from the place that this gives.
    virtual char* put(BerOutput& output, char* to, bool legacy) const
    {
        output.end(to);
        write(output, legacy);
        return output.begin();
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
