// Intervals: their texts, copies and comparison.
#include "types/interval.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace {

using namespace tsdb;
using Interval = Held<data_interval_t>;

// Before anything asks for the zone of the start.
const int zoneOfTheStart = setenv("TZ", "XYZ-3", 1);

TEST(Interval, HasItsKindAndTextAndEqualsItsCopiesAlone)
{
    const struct {
        Interval interval;
        std::uint32_t kind;
        const char* text;
    } cases[] = {
        {Interval(data_interval_incident_t({UINT32_MAX, "say \"hi\"\n)", 1089360300})), 1,
         "(t: incident)(sev: 4294967295)(msg: \"say \"hi\"\n)\")(itime: 2004-07-09 11:05:00)"},
        {Interval(data_interval_incident_t({0, "", -1})), 1,
         "(t: incident)(sev: 0)(msg: \"\")(itime: -1)"},
        {Interval(data_interval_continuous_t({1, 86399, -0.5F, 1.25F, 16777216, UINT32_MAX, 7})), 2,
         "(t: continuous)(start: 1970-01-01 03:00:01)(end: \"1970-01-02 02:59:59)(min: -0.500000)"
         "(avg: 1.250000)(max: 16777216.000000)(ngood: 4294967295)(nbad: 7)"},
        {Interval(data_interval_continuous_t({0, INT64_MAX, 0, 0, HUGE_VALF, 0, 0})), 2,
         "(t: continuous)(start: 1970-01-01 03:00:00)(end: \"9223372036854775807)(min: 0.000000)"
         "(avg: 0.000000)(max: inf)(ngood: 0)(nbad: 0)"},
        {Interval(data_interval_enum_t({UINT32_MAX, 1, 2, 4102444800, INT64_MIN})), 3,
         "(t: enum)(start: 2100-01-01 03:00:00)(end: \"-9223372036854775808)(mask: 4294967295)"
         "(ngood: 1)(nbad: 2)"},
    };
    for (const auto& c : cases) {
        const Interval copy = c.interval;
        EXPECT_EQ(copy->kind(), c.kind) << c.text;
        EXPECT_EQ(copy->toString(), c.text);
        for (const auto& other : cases)
            EXPECT_EQ(copy == other.interval, &other == &c) << c.text << other.text;
    }
}

}  // namespace
