// An unsigned integer of any length: public keys, nonces and session identifiers.
//
// A carrier, not a calculator: it stores, compares, prints and moves numbers to and from bytes,
// adds and shifts. Copies share their limbs until one of them changes, so copying takes constant
// time. Whatever a number frees, it first overwrites with zeros, over the whole capacity.
//
// One block of 32-bit words, the limbs least significant first:
//
//     | count of owners | limb 0 | limb 1 | ... | limb capacity-1 |
//                       ^ limbs
//
// A value is normalised: its top limb isn't 0, and zero has no limbs. The limbs from `length` up
// to `capacity` are 0. The count isn't atomic: numbers that share a block stay on one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class BigNum {
public:
    BigNum();
    explicit BigNum(std::uint32_t value);
    // Shares the limbs. Aborts the process if the count of owners isn't 1 to 1000 by then: it is
    // damaged, or out of hand.
    BigNum(const BigNum& other);
    BigNum& operator=(const BigNum& other);
    ~BigNum();

    bool operator==(const BigNum& other) const;
    bool operator<(const BigNum& other) const;
    bool operator>(const BigNum& other) const { return other < *this; }

    BigNum operator+(const BigNum& other) const;
    // Shifts towards higher bits; a count of 0 or below does nothing.
    void shiftLeft(int count);

    // Makes this value the only owner of its block and adds zero limbs on top until there are
    // `newLength`; the value then stays unnormalised until the next change. Fewer limbs than
    // there are is an assertion.
    void resize(std::size_t newLength);
    std::size_t limbCount() const { return length; }

    std::string toString() const;  // decimal; takes time in the square of the length

    // Writes the number to the start of the buffer, most significant byte first and without
    // leading zero bytes; the rest of the buffer becomes 0. `*size` is the size of the buffer,
    // at least 4 * limbCount() (else an assertion), and then the count of the number's bytes: 0
    // for zero.
    void bn_get_data(char* buffer, std::size_t* size) const;
    // Reads `count` bytes, most significant first.
    void bn_set_data(const char* bytes, std::size_t count);

    // Replaces `*out` by the number, least significant byte first, with zero bytes behind it up
    // to `minimum` bytes. 0x0102 with 4: 02 01 00 00.
    void toBytes(std::string* out, std::size_t minimum) const;
    // Reads bytes, least significant first; zero bytes at the end are harmless.
    void fromBytes(std::string_view text);

private:
    void normalise();
    void swap(BigNum& other) noexcept;
    std::size_t byteCount() const;
    std::uint8_t byteAt(std::size_t index) const;  // from the least significant one
    void setByteAt(std::size_t index, char byte);

    std::uint32_t* limbs;
    std::size_t length;
    std::size_t capacity;
};
