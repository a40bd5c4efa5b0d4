// Wrappers: a plain field, seen as a BER value for one read or one write.
//
// A wrapper is made in one of two ways. Viewing: it is given a pointer to the field, which must
// outlive it. Owning: it holds the field itself; so does every copy.
//
// BerString appends to the text that it views. All others are short: they collect the content in a
// buffer of their own, and decode it at the end. Two short values compare by their content bytes,
// so an owning wrapper that is made with a value has these from the start, until it reads others.
#pragma once

#include "common/BigNum.h"
#include "protocol/BerValue.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace protocol {

// A text. Its tag is BE_STRING_CURRENT or BE_STRING_LEGACY; one that is made without goes by the
// numbering in which it is written.
class BerString final : public BerPrimitive {
public:
    // Views. `maxLength` in bytes. Without a text, it can be compared and copied only.
    BerString(std::string* text, std::size_t maxLength, BerTag tag);
    // Owns.
    BerString(std::string initial, std::size_t maxLength, BerTag tag = byNumbering);
    BerString(const BerString& other);
    BerString& operator=(const BerString&) = delete;

    const std::string& text() const { return *value; }

    std::unique_ptr<BerValue> clone() const override;
    BerTag tag(bool legacy) const override
    {
        return ownTag != byNumbering ? ownTag : legacy ? BE_STRING_LEGACY : BE_STRING_CURRENT;
    }
    bool operator==(const BerValue& other) const override;
    bool operator<(const BerValue& other) const override;
    bool operator>(const BerValue& other) const override;
    void write(BerOutput& output, bool legacy) const override;
    void prepare(std::size_t length) override;
    void append(const char* bytes, std::size_t count) override;

private:
    static constexpr BerTag byNumbering = 0;

    bool bothSet(const BerString& other) const;

    std::unique_ptr<std::string> owned;  // null when viewing
    std::string* value;
    std::size_t maxLength;
    BerTag ownTag;
};

class BerShortValue : public BerPrimitive {
public:
    // Of the content received so far, in bytes.
    std::size_t length() const { return buffer.size(); }

    BerTag tag(bool /*legacy*/) const override { return ownTag; }
    // Of the same class, by the bytes of the content.
    bool operator==(const BerValue& other) const override;
    // Of the same class, by the length of the content alone.
    bool operator<(const BerValue& other) const override;
    bool operator>(const BerValue& other) const override;
    void prepare(std::size_t length) override;
    void append(const char* bytes, std::size_t count) override;

protected:
    BerShortValue(std::size_t maximum, BerTag tag) : maxLength(maximum), ownTag(tag) {}

    std::string buffer;  // the content; short ones take no memory of the heap

private:
    void requireLength(std::size_t length) const;

    std::size_t maxLength;
    BerTag ownTag;
};

// A short value of a field of type T.
template <class T>
class BerShortField : public BerShortValue {
public:
    const T& get() const { return *value; }

protected:
    BerShortField(T* field, std::size_t maximum, BerTag tag)
        : BerShortValue(maximum, tag), value(field)
    {}
    BerShortField(T initial, std::size_t maximum, BerTag tag)
        : BerShortValue(maximum, tag),
          owned(std::make_unique<T>(std::move(initial))),
          value(owned.get())
    {}
    BerShortField(const BerShortField& other)
        : BerShortValue(other), owned(std::make_unique<T>(*other.value)), value(owned.get())
    {}

    std::unique_ptr<T> owned;  // null when viewing
    T* value;
};

class BerBoolean final : public BerShortField<bool> {
public:
    explicit BerBoolean(bool* field, BerTag tag = BE_BOOLEAN);
    explicit BerBoolean(bool initial, BerTag tag = BE_BOOLEAN);
    explicit BerBoolean(const void* notBool, BerTag tag = BE_BOOLEAN) = delete;
    std::unique_ptr<BerValue> clone() const override;
    void readDone() override;
    void write(BerOutput& output, bool legacy) const override;
};

// Of int, unsigned int, and the 64-bit integers. The bounds are included.
template <class T>
class BerIntegerTemplate final : public BerShortField<T> {
public:
    explicit BerIntegerTemplate(T* field, T least = std::numeric_limits<T>::min(),
                                T greatest = std::numeric_limits<T>::max(),
                                BerTag tag = BE_INTEGER);
    explicit BerIntegerTemplate(T initial, T least = std::numeric_limits<T>::min(),
                                T greatest = std::numeric_limits<T>::max(),
                                BerTag tag = BE_INTEGER);
    std::unique_ptr<BerValue> clone() const override;
    // Throws EBer for a value outside the bounds.
    void readDone() override;
    void write(BerOutput& output, bool legacy) const override;

private:
    T minimum;
    T maximum;
};

extern template class BerIntegerTemplate<std::int32_t>;
extern template class BerIntegerTemplate<std::uint32_t>;
extern template class BerIntegerTemplate<std::int64_t>;
extern template class BerIntegerTemplate<std::uint64_t>;

// One value of an enumeration: the base of CheckType and its kind, which differ in nothing but
// their class.
class BerEnumerated : public BerShortField<std::int32_t> {
public:
    void readDone() override;
    void write(BerOutput& output, bool legacy) const override;

protected:
    explicit BerEnumerated(std::int32_t* field);
    explicit BerEnumerated(std::int32_t initial);
    BerEnumerated(const BerEnumerated&) = default;
};

// A number of at most 1040 bytes. It goes out without a sign byte.
class BerBigNum final : public BerShortField<BigNum> {
public:
    explicit BerBigNum(BigNum* field, BerTag tag = BE_INTEGER);
    explicit BerBigNum(const BigNum& initial, BerTag tag = BE_INTEGER);
    std::unique_ptr<BerValue> clone() const override;
    void readDone() override;
    void write(BerOutput& output, bool legacy) const override;
};

// A number in a format of this protocol, which isn't that of X.690: no content for 0, one byte for
// an infinity or NaN, otherwise the byte 0 and the number's text. A NaN is read as 0.
class BerReal final : public BerShortField<double> {
public:
    explicit BerReal(double* field, BerTag tag = BE_REAL);
    explicit BerReal(double initial, BerTag tag = BE_REAL);
    std::unique_ptr<BerValue> clone() const override;
    void readDone() override;
    void write(BerOutput& output, bool legacy) const override;
};

class BerNull final : public BerShortValue {
public:
    BerNull() : BerShortValue(0, BE_NULL) {}
    std::unique_ptr<BerValue> clone() const override;
    void write(BerOutput& output, bool legacy) const override;
};

}  // namespace protocol
