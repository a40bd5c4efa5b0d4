// The payload record of the reports.
//
// Known to the codec alone: this process does not act on it.
#pragma once

#include "types/id.h"

#include <cstdint>

namespace reporter {

// SCHEDULED_REPORT_GENERATION.
struct Scheduled_Report_Generation_Data {
    tql::id_t id;
    tql::version_t version;
    std::int64_t time = 0;  // seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("id", self.id);
        visit("version", self.version);
        visit("time", self.time);
    }
    bool operator==(const Scheduled_Report_Generation_Data&) const = default;
};

}  // namespace reporter
