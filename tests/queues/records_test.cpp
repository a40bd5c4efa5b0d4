// The records' own rules: complete lists of fields, defaults, copies, the tables of names.

#include "queues/event.h"
#include "queues/records/control.h"
#include "queues/records/remcheck.h"
#include "queues/records/services.h"
#include "queues/typeForms.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using queues::queue_t;

struct Anything {
    template <class T>
    operator T() const;
};

template <class T, std::size_t... I>
constexpr bool takes(std::index_sequence<I...> /*members*/)
{
    return requires
    {
        T{(static_cast<void>(I), Anything())...};
    };
}

// How many members an aggregate has.
template <class T, std::size_t N = 0>
constexpr std::size_t memberCount()
{
    if constexpr (takes<T>(std::make_index_sequence<N + 1>()))
        return memberCount<T, N + 1>();
    else
        return N;
}

template <class T>
void expectCompleteList()
{
    if constexpr (queues::Record<T> && std::is_aggregate_v<T>) {
        T record{};
        queues::FieldCounter counter;
        T::fields(record, counter);
        EXPECT_EQ(counter.count, memberCount<T>()) << typeid(T).name();
    }
}

TEST(records, listEveryMember)
{
    using namespace queues;
#define EVENT(number, name, ...) expectCompleteList<__VA_ARGS__>();
#define EVENT_LATER(number, name)
#define EVENT_EXCEPTION(number, name)
#include "queues/EventTable.inc"
#undef EVENT
#undef EVENT_LATER
#undef EVENT_EXCEPTION
    EXPECT_EQ(memberCount<control::Server_Configuration_Fields>(), 87U);
}

TEST(records, startFromTheirDefaults)
{
    const services::remcheck_stat stat;
    EXPECT_EQ(stat.result, services::RESULT_READ_FAILED);
    EXPECT_EQ(stat.ctime, 0);
    EXPECT_EQ(stat.replytime, 0);
    EXPECT_EQ(stat.attempts, 0U);
    EXPECT_EQ(stat.check_id, tql::id_t());
    EXPECT_THAT(stat.result_strings, testing::IsEmpty());
    EXPECT_EQ(remcheck::remcheck_conf(), (remcheck::remcheck_conf{.host = "",
                                                                  .addr = 0,
                                                                  .id = {},
                                                                  .service = 0,
                                                                  .port = 0,
                                                                  .frequency = 0,
                                                                  .warnIfAbove = 0,
                                                                  .alertIfAbove = 0,
                                                                  .libssl = "",
                                                                  .properties = {}}));
}

TEST(records, copiesOwnTheirProperties)
{
    remcheck::remcheck_conf copy;
    {
        remcheck::remcheck_conf original;
        original.properties[542] = Held<tql::property_t>(tql::property_string_t(542, "^2.."));
        original.properties[7];
        copy = original;
        EXPECT_NE(copy.properties[542].get(), original.properties[542].get());
        EXPECT_EQ(copy, original);
        original.properties[542]->is_null = true;
        EXPECT_NE(copy, original);
    }
    const auto& self = copy;
    copy = self;
    EXPECT_EQ(copy.properties.at(542)->toString(), "\"^2..\"");
    EXPECT_EQ(copy.properties.at(7).get(), nullptr);
}

TEST(records, onlySomeOutcomesHaveAReplyTime)
{
    for (std::int32_t result = -1; result <= 10; ++result)
        EXPECT_EQ(services::hasReplyTime(result),
                  result == 0 || result == 1 || result == 2 || result == 6)
            << result;
}

TEST(names, ofServices)
{
    const char* const names[] = {"(Uninitialized)",
                                 "HTTP",
                                 "ICMP",
                                 "DNS",
                                 "SMTP",
                                 "POP3",
                                 "TCP",
                                 "FTP",
                                 "IMAP",
                                 "NTP",
                                 "NNTP",
                                 "NFS",
                                 "NIS",
                                 "PORTMAP",
                                 "GENRPC",
                                 "Custom"};
    for (std::int32_t number = 0; number < 16; ++number) {
        const auto& entry = services::serviceNames[static_cast<std::size_t>(number)];
        EXPECT_STREQ(entry.first, names[number]);
        EXPECT_EQ(entry.second, number);
        EXPECT_EQ(services::serviceNumbers.at(names[number]), number);
    }
    EXPECT_EQ(services::serviceNumbers.size(), 16U);
}

TEST(names, ofEvents)
{
    const std::pair<std::int32_t, const char*> cases[] = {
        {0, "INVALID_HEAD"},
        {1, "DAEMONIZE_SYSTEM"},
        {4, "SYSTEM_LOG_REQUEST"},
        {68, "CLEAR_FIRE_FLAG"},
        {69, "(event_t)69"},
        {71, "(event_t)71"},
        {72, "AUDIT_EVENT"},
        {128, "SCHEDULE_EVENT_ABSOLUTE"},
        {134, "CHECK_REQUEST"},
        {135, "CHECK_RESULT"},
        {194, "EPSECCHANGENOTIFICATION"},
        {195, "MESSAGE_EXCEPTION"},
        {196, "INVALID_TAIL"},
        {197, "(event_t)197"},
        {-1, "(event_t)-1"},
        {INT32_MIN, "(event_t)-2147483648"},
    };
    for (const auto& [number, name] : cases)
        EXPECT_EQ(eventName(static_cast<event_t>(number)), name);
    int named = 0;
    for (std::int32_t number = 1; number <= 195; ++number)
        named += eventName(static_cast<event_t>(number)).starts_with("(event_t)") ? 0 : 1;
    EXPECT_EQ(named, 192);
}

TEST(names, ofQueues)
{
    const std::pair<std::int32_t, const char*> cases[] = {
        {-1, "none"},  {0, "main"},    {1, "schd"},      {2, "dbms"},        {3, "rmch"},
        {4, "skio"},   {5, "alrm"},    {6, "alrt"},      {7, "snmp"},        {8, "brdc"},
        {9, "bnch"},   {10, "port"},   {11, "keyg"},     {12, "rept"},       {13, "forc"},
        {14, "kngt"},  {15, "nets"},   {16, "grid"},     {17, "ncup"},       {18, "gmas"},
        {19, "gsat"},  {20, "tsdb"},   {21, "upln"},     {22, "extra"},      {23, "xx23"},
        {100, "x100"}, {1000, "1000"}, {12345, "12345"}, {-2, "4294967294"},
    };
    for (const auto& [number, name] : cases)
        EXPECT_EQ(queueName(static_cast<queue_t>(number)), name);
}

}  // namespace
