// The payload records of the time-series store: series are made, filled, read and mended by handle.
//
// Known to the codec alone: this process acts on none of them.
#pragma once

#include "common/Held.h"
#include "queues/event_t.h"
#include "types/interval.h"

#include <cstdint>
#include <list>
#include <string>
#include <utility>

namespace tsdb {

// CREATE_TIMESERIES and RETURN_DESCRIBE_TIMESERIES. The two fields are carried without a meaning.
struct time_series_layout_t {
    std::uint32_t first = 0;
    std::list<std::pair<std::uint32_t, std::uint32_t>> second;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("first", self.first);
        visit("second", self.second);
    }
    bool operator==(const time_series_layout_t&) const = default;
};

// GET_DATA.
struct Get_Data_Data {
    std::uint32_t handle = 0;
    std::int32_t data_type = 0;
    std::int32_t flags = 0;
    bool raw = false;
    std::int64_t start = 0;  // seconds since 1970 UTC
    std::int64_t end = 0;    // seconds since 1970 UTC
    std::uint32_t count = 0;
    std::int32_t offset = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("handle", self.handle);
        visit("data_type", self.data_type);
        visit("flags", self.flags);
        visit("raw", self.raw);
        visit("start", self.start);
        visit("end", self.end);
        visit("count", self.count);
        visit("offset", self.offset);
    }
    bool operator==(const Get_Data_Data&) const = default;
};

// RETURN_GET_DATA.
struct Return_Get_Data_Data {
    std::int32_t data_type = 0;
    std::list<Held<tsdb::data_interval_t>> data;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("data_type", self.data_type);
        visit("data", self.data);
    }
    bool operator==(const Return_Get_Data_Data&) const = default;
};

// PUT_DATA.
struct Put_Data_Data {
    queues::queue_t orig_requester = queues::queue_t::none;
    std::uint32_t handle = 0;
    std::int32_t operation = 0;
    std::int32_t data_type = 0;
    std::list<Held<tsdb::data_interval_t>> data;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("orig_requester", self.orig_requester);
        visit("handle", self.handle);
        visit("operation", self.operation);
        visit("data_type", self.data_type);
        visit("data", self.data);
    }
    bool operator==(const Put_Data_Data&) const = default;
};

// TRUNCATE_OLD_DATA.
struct Truncate_Old_Data_Data {
    std::uint32_t handle = 0;
    std::int64_t time = 0;  // seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("handle", self.handle);
        visit("time", self.time);
    }
    bool operator==(const Truncate_Old_Data_Data&) const = default;
};

// RECOVERY_MERGE_TIMESERIES.
struct Recovery_Merge_TimeSeries_Data {
    std::uint32_t handle = 0;
    std::list<std::string> data;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("handle", self.handle);
        visit("data", self.data);
    }
    bool operator==(const Recovery_Merge_TimeSeries_Data&) const = default;
};

}  // namespace tsdb
