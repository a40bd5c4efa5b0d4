// The intervals of the time-series store: what a check saw at a moment or between two.
//
// data_interval_t    what all have
// interval_value_t   adds the fields of a class and what follows from them
// data_interval_..._t  the three classes, with their type numbers
//
// An interval is owned by the list or record that holds it, in a Held<data_interval_t>. A null one
// is a value too: a reader meets it where the sender had none, or one of a class unknown here.
#pragma once

#include "common/Held.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace tsdb {

class data_interval_t {
public:
    // The type number, 1 to 3.
    virtual std::uint32_t kind() const = 0;
    virtual ~data_interval_t() = default;
    virtual std::unique_ptr<data_interval_t> clone() const = 0;
    // All fields in one line, as they are: a text isn't escaped. Times are in the zone with which
    // the process was started; one that has no date, being before 1970 or beyond all years, is
    // the plain number.
    virtual std::string toString() const = 0;

    // Same class and all fields equal.
    bool operator==(const data_interval_t& other) const;

protected:
    data_interval_t() = default;
    data_interval_t(const data_interval_t&) = default;
    data_interval_t& operator=(const data_interval_t&) = default;
};

// An entry of an incident log.
struct incident_fields {
    std::uint32_t sev = 0;  // severity
    std::string msg;
    std::int64_t itime = 0;  // when it happened, seconds since 1970 UTC

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("sev", self.sev);
        visit("msg", self.msg);
        visit("itime", self.itime);
    }
    bool operator==(const incident_fields&) const = default;
};

// A span of measurements of a number.
struct continuous_fields {
    std::int64_t start = 0;  // seconds since 1970 UTC, as `end`
    std::int64_t end = 0;
    float min = 0;  // of the values measured
    float avg = 0;
    float max = 0;
    std::uint32_t ngood = 0;  // good samples
    std::uint32_t nbad = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("start", self.start);
        visit("end", self.end);
        visit("min", self.min);
        visit("avg", self.avg);
        visit("max", self.max);
        visit("ngood", self.ngood);
        visit("nbad", self.nbad);
    }
    bool operator==(const continuous_fields&) const = default;
};

// A span of measurements of a state. Its span stands behind the samples.
struct enum_fields {
    std::uint32_t mask = 0;   // a bit for each state seen
    std::uint32_t ngood = 0;  // good samples
    std::uint32_t nbad = 0;
    std::int64_t start = 0;  // seconds since 1970 UTC, as `end`
    std::int64_t end = 0;

    template <class Self, class Visitor>
    static void fields(Self& self, Visitor& visit)
    {
        visit("mask", self.mask);
        visit("ngood", self.ngood);
        visit("nbad", self.nbad);
        visit("start", self.start);
        visit("end", self.end);
    }
    bool operator==(const enum_fields&) const = default;
};

// The operations that follow from the fields. `Self` is the derived class.
template <class Self, std::uint32_t Kind, class Fields>
class interval_value_t : public data_interval_t, public Fields {
public:
    using fields_t = Fields;
    static constexpr std::uint32_t tag = Kind;

    interval_value_t() = default;
    explicit interval_value_t(Fields initial) : Fields(std::move(initial)) {}

    std::uint32_t kind() const override { return Kind; }
    std::unique_ptr<data_interval_t> clone() const override
    {
        return std::make_unique<Self>(static_cast<const Self&>(*this));
    }
};

class data_interval_incident_t final
    : public interval_value_t<data_interval_incident_t, 1, incident_fields> {
public:
    using interval_value_t::interval_value_t;
    std::string toString() const override;
};

class data_interval_continuous_t final
    : public interval_value_t<data_interval_continuous_t, 2, continuous_fields> {
public:
    using interval_value_t::interval_value_t;
    std::string toString() const override;
};

class data_interval_enum_t final : public interval_value_t<data_interval_enum_t, 3, enum_fields> {
public:
    using interval_value_t::interval_value_t;
    std::string toString() const override;
};

// Calls `visit.operator()<C>()` with the class C of a type number, and gives true; gives false,
// and calls nothing, if no class has the number.
template <class Visitor>
bool withIntervalClass(std::uint32_t kind, Visitor&& visit)
{
    const auto tryOne = [&]<class C>() {
        if (kind != C::tag)
            return false;
        visit.template operator()<C>();
        return true;
    };
    return tryOne.template operator()<data_interval_incident_t>() ||
           tryOne.template operator()<data_interval_continuous_t>() ||
           tryOne.template operator()<data_interval_enum_t>();
}

}  // namespace tsdb
