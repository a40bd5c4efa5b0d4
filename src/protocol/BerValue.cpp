#include "protocol/BerValue.h"

#include "common/assertion.h"

#include <new>
#include <typeinfo>
#include <utility>

namespace protocol {

namespace {

[[noreturn]] void refuse(const char* operation, const char* skipper)
{
    assertion(std::string("Cannot call ") + operation + " for " + skipper);
}

constexpr const char* primitiveSkipper = "BerPrimitiveSkipper";
constexpr const char* constructedSkipper = "BerConstructedSkipper";

}  // namespace

// Address sanitizers find the use of a value that is gone only if its memory has been given back.
#if defined(__has_feature)
#define NETCHECK_HAS_FEATURE(name) __has_feature(name)
#else
#define NETCHECK_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || NETCHECK_HAS_FEATURE(address_sanitizer)

void* BerValue::operator new(std::size_t size)
{
    return ::operator new(size);
}

void BerValue::operator delete(void* memory, std::size_t /*size*/)
{
    ::operator delete(memory);
}

#else

namespace {

// Memory of values that are gone, by size in units, and of one thread. Messages come in hundreds of
// values that go together: more than what malloc keeps at hand.
struct Kept {
    static constexpr std::size_t unit = 16;
    static constexpr std::size_t mostUnits = 16;
    static constexpr std::size_t mostBytes = std::size_t{4} << 20U;

    struct Block {
        Block* next;
    };

    ~Kept()
    {
        left = 0;
        for (Block*& first : blocks) {
            while (Block* const block =
                       std::exchange(first, first != nullptr ? first->next : nullptr))
                ::operator delete(block);
        }
    }

    Block* blocks[mostUnits + 1] = {};
    std::size_t left = mostBytes;
};

thread_local Kept kept;

}  // namespace

void* BerValue::operator new(std::size_t size)
{
    const std::size_t units = (size + Kept::unit - 1) / Kept::unit;
    if (units > Kept::mostUnits)
        return ::operator new(size);
    Kept::Block*& first = kept.blocks[units];
    if (first == nullptr)
        return ::operator new(units* Kept::unit);
    kept.left += units * Kept::unit;
    return std::exchange(first, first->next);
}

void BerValue::operator delete(void* memory, std::size_t size)
{
    const std::size_t units = (size + Kept::unit - 1) / Kept::unit;
    if (units > Kept::mostUnits || kept.left < units * Kept::unit) {
        ::operator delete(memory);
        return;
    }
    kept.left -= units * Kept::unit;
    kept.blocks[units] = new (memory) Kept::Block{kept.blocks[units]};
}

#endif

void BerOutput::take(const char* bytes, std::size_t count)
{
    if (count > room())
        write(bytes, count);
    else
        next = std::copy_n(bytes, count, next);
}

char* BerOutput::makeRoom(char* to)
{
    end(to);
    return begin();
}

char* BerOutput::putBeyond(char* to, const char* bytes, std::size_t count)
{
    end(to);
    take(bytes, count);
    return begin();
}

std::unique_ptr<BerValue> makeSkipper(BerTag tag)
{
    if (isConstructed(tag))
        return std::make_unique<BerConstructedSkipper>(tag);
    return std::make_unique<BerPrimitiveSkipper>(tag);
}

std::unique_ptr<BerValue> BerPrimitiveSkipper::clone() const
{
    return std::make_unique<BerPrimitiveSkipper>(*this);
}

bool BerPrimitiveSkipper::operator==(const BerValue& other) const
{
    return typeid(other) == typeid(*this);
}

bool BerPrimitiveSkipper::operator<(const BerValue& /*other*/) const
{
    refuse("operator<", primitiveSkipper);
}

bool BerPrimitiveSkipper::operator>(const BerValue& /*other*/) const
{
    refuse("operator>", primitiveSkipper);
}

void BerPrimitiveSkipper::write(BerOutput& /*output*/, bool /*legacy*/) const
{
    assertion("BerPrimitiveSkipper::write invoked");
}

std::unique_ptr<BerValue> BerConstructedSkipper::clone() const
{
    return std::make_unique<BerConstructedSkipper>(*this);
}

bool BerConstructedSkipper::operator==(const BerValue& other) const
{
    return typeid(other) == typeid(*this);
}

bool BerConstructedSkipper::operator<(const BerValue& /*other*/) const
{
    refuse("operator<", constructedSkipper);
}

bool BerConstructedSkipper::operator>(const BerValue& /*other*/) const
{
    refuse("operator>", constructedSkipper);
}

void BerConstructedSkipper::write(BerOutput& /*output*/, bool /*legacy*/) const
{
    assertion("BerConstructedSkipper::write invoked");
}

BerChild BerConstructedSkipper::child(std::size_t /*index*/, BerTag tag, bool /*legacy*/)
{
    return makeSkipper(tag);
}

}  // namespace protocol
