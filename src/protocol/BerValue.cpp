#include "protocol/BerValue.h"

#include "common/assertion.h"

#include <typeinfo>

namespace protocol {

namespace {

[[noreturn]] void refuse(const char* operation, const char* skipper)
{
    assertion(std::string("Cannot call ") + operation + " for " + skipper);
}

constexpr const char* primitiveSkipper = "BerPrimitiveSkipper";
constexpr const char* constructedSkipper = "BerConstructedSkipper";

}  // namespace

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
