#include "types/interval.h"

#include "common/Time.h"
#include "common/errors.h"
#include "common/text.h"

namespace tsdb {

namespace {

std::string timeText(std::int64_t seconds)
{
    if (seconds >= 0) {
        try {
            return time2str(seconds, TimeZone::system());
        } catch (const error::ESystemError&) {
            // The year is beyond the calendar of the C library: the number says it all.
        }
    }
    return int64ToString(seconds);
}

std::string floatText(float value)
{
    return doubleToString(static_cast<double>(value), -1, -1);
}

// The quote that opens behind `end` is never closed.
template <class Span>
std::string spanText(const Span& span)
{
    return "(start: " + timeText(span.start) + ")(end: \"" + timeText(span.end) + ")";
}

template <class Samples>
std::string samplesText(const Samples& samples)
{
    return "(ngood: " + uintToString(samples.ngood) + ")(nbad: " + uintToString(samples.nbad) + ")";
}

}  // namespace

bool data_interval_t::operator==(const data_interval_t& other) const
{
    bool same = false;
    if (kind() == other.kind()) {
        withIntervalClass(kind(), [&]<class C>() {
            const typename C::fields_t& mine = static_cast<const C&>(*this);
            const typename C::fields_t& others = static_cast<const C&>(other);
            same = mine == others;
        });
    }
    return same;
}

std::string data_interval_incident_t::toString() const
{
    return "(t: incident)(sev: " + uintToString(sev) + ")(msg: \"" + msg +
           "\")(itime: " + timeText(itime) + ")";
}

std::string data_interval_continuous_t::toString() const
{
    return "(t: continuous)" + spanText(*this) + "(min: " + floatText(min) +
           ")(avg: " + floatText(avg) + ")(max: " + floatText(max) + ")" + samplesText(*this);
}

std::string data_interval_enum_t::toString() const
{
    return "(t: enum)" + spanText(*this) + "(mask: " + uintToString(mask) + ")" +
           samplesText(*this);
}

}  // namespace tsdb
