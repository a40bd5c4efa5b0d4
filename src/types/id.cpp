#include "types/id.h"

#include "common/errors.h"
#include "common/text.h"

namespace tql {

void throwReferenceOverflow(std::size_t index, std::size_t bound)
{
    throw error::ERange("small vector reference overflow " + sizeToString(index) +
                        " >= " + sizeToString(bound));
}

void throwResizeOverflow(std::size_t size, std::size_t bound)
{
    throw error::ERange("small vector resize overflow " + sizeToString(size) + " > " +
                        sizeToString(bound));
}

std::string id_t::toString() const
{
    std::string text;
    for (const std::uint32_t number : val) {
        if (!text.empty())
            text += '.';
        text += uintToString(number);
    }
    return text;
}

std::string version_t::toString() const
{
    return uint64ToString(first) + ".1." + uint64ToString(second);
}

bool version_t::operator<(const version_t& other) const
{
    const auto difference = static_cast<std::int64_t>(first - other.first);
    if (difference != 0)
        return difference < 0;
    return static_cast<std::int64_t>(second - other.second) < 0;
}

std::string gidToString(std::uint32_t gid)
{
    std::string text;
    for (unsigned shift = 32; shift > 0;) {
        shift -= 8;
        if (!text.empty())
            text += ':';
        text += hexToString((gid >> shift) & 0xFF, 2);
    }
    return text;
}

}  // namespace tql
