// The wire forms of values: exact bytes, what readers take beyond them, what ends the process,
// areas of the streams, hostile lengths.
#include "queues/ioprim.h"

#include "tests/queues/frames.h"
#include "types/snmpcheck_stat.h"

#include <gmock/gmock.h>

#include <cmath>
#include <new>
#include <sstream>
#include <stdexcept>

namespace {

using namespace frames;
using protocol::ioprim;
using Property = Held<tql::property_t>;
using Interval = Held<tsdb::data_interval_t>;

template <class T>
void expectForm(const T& value, const std::string& hex)
{
    EXPECT_EQ(written(value), unhex(hex)) << hex;
    EXPECT_TRUE(expectRead<T>(hex) == value) << hex;
}

TEST(forms, ofValuesAreExact)
{
    expectForm<std::int32_t>(-2, "FE FF FF FF");
    expectForm<std::uint64_t>(0x0102030405060708, "08 07 06 05 04 03 02 01");
    expectForm<double>(-1.5, "00 00 00 00 00 00 F8 BF");
    expectForm<bool>(true, "01 00 00 00");
    expectForm<std::uint16_t>(0xFFFE, "FE FF 00 00");
    expectForm(std::string("o\0k", 3), "03 00 00 00 00 00 00 00 6F 00 6B");
    expectForm(Time(-1, 500000), "FF FF FF FF 20 A1 07 00");
    expectForm(static_cast<queues::queue_t>(77), "4D 00 00 00");
    expectForm(std::list<std::int32_t>{3, 1}, "02 00 00 00 03 00 00 00 01 00 00 00");
    expectForm(std::set<std::uint32_t>{3, 1}, "02 00 00 00 01 00 00 00 03 00 00 00");
    expectForm(std::map<std::uint32_t, bool>{{9, true}, {2, false}},
               "02 00 00 00 02 00 00 00 00 00 00 00 09 00 00 00 01 00 00 00");
    expectForm(std::map<tql::id_t, float>{{{2}, -1.5F}, {{1, 0}, 0}, {{1}, 1}},
               "03 00 00 00 01 00 00 00 01 00 00 00 00 00 80 3F 02 00 00 00 01 00 00 00"
               "00 00 00 00 00 00 00 00 01 00 00 00 02 00 00 00 00 00 C0 BF");
    expectForm(BigNum(0), "04 00 00 00 00 00 00 00 00 00 00 00");
    expectForm(BigNum(0x0102), "04 00 00 00 00 00 00 00 02 01 00 00");
    expectRead<tql::object_t>(
        "04 00 00 00 FF FF FF FF 01 00 00 00 09 00 00 00 01 00 00 00 01 00 00 00"
        "07 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00 01 00 00 00 34 00 00 00 00 00 00 00"
        "00 00 00 00 00 00 00 00 01 00 00 00 06 00 00 00 25 00 00 00");
    expectRead<tql::select_t>(
        "04 00 00 00 FF FF FF FF 02 00 00 00 01 00 00 00"
        "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
        "00 00 00 00 01 00 00 00 00 00 00 00 0D 00 00 00 02 00 00 00 01 00 00 00 33 00 00 00");
}

template <class C, class... Arguments>
void expectProperty(const std::string& tag, const std::string& value, Arguments&&... arguments)
{
    C property(542U, std::forward<Arguments>(arguments)...);
    property.modifiers = 0x80000001;
    expectForm(Property(property), tag + "00 00 00 1E 02 00 00 00 00 00 00 01 00 00 80" + value);
}

TEST(forms, ofPropertiesAreExact)
{
    using namespace tql;
    const object_reference_t reference{{2}, {{3}, {}, 37}};
    const std::string hex =
        "01 00 00 00 02 00 00 00 01 00 00 00 03 00 00 00 00 00 00 00 25 00 00 00";
    expectProperty<property_string_t>("07", "02 00 00 00 00 00 00 00 6F 6B", "ok");
    expectProperty<property_string_list_t>("08", "01 00 00 00 00 00 00 00 00 00 00 00",
                                           std::list<std::string>{""});
    expectProperty<property_object_set_t>("09", "01 00 00 00" + hex, std::set{reference});
    expectProperty<property_object_t>("0A", hex, reference);
    expectProperty<property_version_t>("0B", "07 00 00 00 00 00 00 00 02 01 00 00 00 00 00 00",
                                       version_t{7, 0x0102});
    expectProperty<property_action_t>("0C", "FE FF FF FF", -2);
    expectProperty<property_real_t>("0D", "00 00 00 00 00 00 F8 3F", 1.5);
    expectProperty<property_bignum_t>("0E", "04 00 00 00 00 00 00 00 02 00 00 00", BigNum(2));
    expectProperty<property_gid_t>("0F", "0D 0C 0B 0A", 0x0A0B0C0DU);
    expectProperty<property_gid_list_t>("10", "01 00 00 00 05 00 00 00", std::vector{5U});
    expectProperty<property_date_t>("11", "FE FF FF FF FF FF FF FF", -2);
    expectProperty<property_index_t>("12", "FE FF FF FF", 0xFFFFFFFEU);
    expectProperty<property_int_t>("13", "FD FF FF FF", -3);
    expectProperty<property_uint_t>("14", "03 00 00 00", 3U);
    expectProperty<property_boolean_t>("15", "01 00 00 00", true);
    expectProperty<property_blob_t>("16", "01 00 00 00 00 00 00 00 6B", "k");
    expectProperty<property_lob_t>("17", "00 00 00 00 00 00 00 00", "");
    expectProperty<property_oid_t>("18", "01 00 00 00 03 00 00 00", std::vector{3U});
    expectProperty<property_enum_t>("19", "20 00 01 00 01 00 00 00", 0x10020U, 1U);
}

TEST(forms, ofIntervalsAreExact)
{
    using namespace tsdb;
    expectForm(Interval(), "00 00 00 00");
    expectForm(Interval(data_interval_incident_t({.sev = 2, .msg = "ok", .itime = -3})),
               "01 00 00 00 02 00 00 00 02 00 00 00 00 00 00 00 6F 6B FD FF FF FF FF FF FF FF");
    expectForm(Interval(data_interval_continuous_t({.start = 1,
                                                    .end = 2,
                                                    .min = -1.5F,
                                                    .avg = 1,
                                                    .max = 2,
                                                    .ngood = 6,
                                                    .nbad = 0x80000007})),
               "02 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00"
               "00 00 C0 BF 00 00 80 3F 00 00 00 40 06 00 00 00 07 00 00 80");
    expectForm(
        Interval(data_interval_enum_t({.mask = 1, .ngood = 2, .nbad = 3, .start = 4, .end = -5})),
        "03 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00"
        "04 00 00 00 00 00 00 00 FB FF FF FF FF FF FF FF");
}

TEST(forms, canBeReadBeyondWhatIsWritten)
{
    expectTaken(false, "02 00 00 00", "01 00 00 00");
    expectTaken<std::uint16_t>(0, "34 12 01 00", "34 12 00 00");
    // Containers are emptied first, even by a negative count.
    expectTaken(std::list<bool>{true}, "FF FF FF FF", "00 00 00 00");
    expectTaken(std::map<int, int>{{1, 2}}, "00 00 00 80", "00 00 00 00");
    // A tag without a class is all that is read.
    for (const std::string tag : {"00 00 00 00", "06 00 00 00", "1A 00 00 00", "07 01 00 00"})
        expectTaken(std::pair{Property(tql::property_int_t(1, 2)), 0}, tag + "05 00 00 00",
                    "00 00 00 00 05 00 00 00");
    for (const std::string tag : {"00 00 00 00", "04 00 00 00", "01 00 00 80"})
        expectTaken(std::pair{Interval(tsdb::data_interval_enum_t()), 0}, tag + "05 00 00 00",
                    "00 00 00 00 05 00 00 00");
    expectTaken(BigNum(7), "06 00 00 00 00 00 00 00 02 01 00 00 00 00",
                "04 00 00 00 00 00 00 00 02 01 00 00");
    expectTaken(BigNum(7), "00 00 00 00 00 00 00 00", "04 00 00 00 00 00 00 00 00 00 00 00");

    tql::id_t id;
    EXPECT_EQ(readInto(id, unhex("04 00 00 00")), "small vector resize overflow 4 > 3");
    EXPECT_EQ(readInto(id, unhex("FF FF FF FF")),
              "small vector resize overflow 18446744073709551615 > 3");
}

// Decimal digits of a number from the wire must not take for ever.
TEST(forms, ofVeryLongNumbersPrintAsTheirLength)
{
    for (const std::size_t bytes : {4096, 4097}) {
        BigNum number;
        number.fromBytes(std::string(bytes, '\1'));
        std::ostringstream text;
        queues::printPayloadValue(text, 0, number);
        EXPECT_EQ(text.str() == "(4097 bytes)\n", bytes == 4097) << text.str();
    }
}

// `invalid` describes the record in what ends the process; null if it keeps its rule.
template <class T, class Value>
void expectRule(std::int64_t start, std::int64_t end, Value value, std::int32_t status,
                const char* invalid)
{
    const T stat{start, end, value, status};
    const std::string bytes = written(std::pair{std::pair{start, end}, std::pair{value, status}});
    T read;
    std::ostringstream text;
    EXPECT_EQ(readInto(read, bytes.substr(0, bytes.size() - 1)), "EOS from memory")
        << "not judged yet";
    if (invalid == nullptr) {
        EXPECT_EQ(written(stat), bytes);
        EXPECT_EQ(readInto(read, bytes), "left 0");
        EXPECT_EQ(written(read), bytes);
        queues::printPayloadValue(text, 0, stat);
    } else {
        const std::string trying = "Assertion failed: Trying to ";
        const std::string record = std::string(" invalid ") + T::recordName() + " (" + invalid;
        const auto output = testing::StartsWith(trying + "output" + record + ")\n");
        EXPECT_DEATH(written(stat), output);
        EXPECT_DEATH(queues::printPayloadValue(text, 0, stat), output);
        EXPECT_DEATH(readInto(read, bytes), testing::StartsWith(trying + "input" + record + ")\n"));
    }
}

TEST(formsDeathTest, ofInvalidSnmpRecordsEndTheProcess)
{
    const double nan = std::nan("");
    const std::tuple<std::int64_t, std::int64_t, double, std::int32_t, const char*, bool> cases[] =
        {
            {1, 1, -0.5, 0, nullptr, true},
            {INT64_MAX, INT64_MAX, 1e300, 4, nullptr, true},
            {1, 2, nan, 5, nullptr, true},
            {1, 1, nan, 4, "start=1, end=1, result=nan, status=4", true},
            {1, 1, -HUGE_VAL, 0, "start=1, end=1, result=-inf, status=0", true},
            {0, 1, 0.25, 1, "start=0, end=1, result=0.250000, status=1", false},
            {2, 1, 0, 5, "start=2, end=1, result=0.000000, status=5", false},
            {1, 1, 0, 6, "start=1, end=1, result=0.000000, status=6", false},
            {-2, -1, 0, -1,
             "start=18446744073709551614, end=18446744073709551615, result=0.000000, "
             "status=4294967295",
             false},
        };
    for (const auto& [start, end, result, status, invalid, isValidEnum] : cases) {
        SCOPED_TRACE(testing::Message() << start << ' ' << end << ' ' << result << ' ' << status);
        expectRule<snmpcheck_stat_continuous>(start, end, result, status, invalid);
        expectRule<snmpcheck_stat_uptime>(start, end, result, status, invalid ? "" : nullptr);
        expectRule<snmpcheck_stat_enum>(start, end, 7U, status, isValidEnum ? nullptr : "");
    }
}

TEST(ioprim, splitsTextsOverAreasButNeverANumber)
{
    const std::pair record{std::pair{7, std::string("abcdefghijklmnopqrstuvwxyz")}, -3.25};
    const std::string whole = written(record, 4096);
    for (std::size_t areaSize = 8; areaSize <= whole.size() + 1; ++areaSize)
        EXPECT_EQ(written(record, areaSize), whole) << areaSize;

    // The first number's area goes out half used, and the last one's isn't full.
    memory::Output output(8);
    ioprim link(nullptr, &output);
    link << record.first;
    EXPECT_EQ(output.sent, whole.substr(0, 4 + 8 + 24));
    EXPECT_DEATH(written(1, 3),
                 "^Assertion failed: New write area of size 3 too small for primitive write\n");
}

TEST(ioprim, takesNoMemoryForWhatHasNotArrived)
{
    std::string text;
    EXPECT_THROW(readInto(text, unhex("FF FF FF FF FF FF FF FF")), std::length_error);
    EXPECT_THROW(readInto(text, unhex("00 00 00 00 00 00 00 10")), std::bad_alloc) << "2^60";
    // This one can be held; it just doesn't come.
    const std::string begun = unhex("00 00 00 00 00 80 00 00") + std::string(10000, 'x');
    EXPECT_EQ(readInto(text, begun), "EOS from memory");
    EXPECT_LE(text.capacity(), 4U * 10000);
    std::vector<std::int32_t> numbers;
    EXPECT_EQ(readInto(numbers, unhex("FF FF FF 7F 01 00 00 00")), "EOS from memory");
    EXPECT_LT(numbers.capacity(), 100U);
}

}  // namespace
