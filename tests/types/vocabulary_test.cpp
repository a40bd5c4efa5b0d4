// The numbers that all processes share, and their names.
#include "types/vocabulary.h"

#include <gtest/gtest.h>

namespace {

TEST(Vocabulary, NamesProperties)
{
    struct Case {
        std::uint32_t number;
        const char* name;
    };
    const Case cases[] = {
        {0, "id"},
        {69, "siblingNamePattern"},
        {105, "countOK"},
        {321, "<unknown property: 321>"},
        {555, "checkAttempts"},
        {564, "<unknown property: 564>"},
        {913, "capGridConf"},
        {914, "capClusterConf"},
        {915, "capGridConf"},
        {2731, "stateAction31"},
        {3412, "signKeyPrivate_d"},
        {4402, "yCoordinate"},
        {4403, "<unknown property: 4403>"},
        {4294967295, "<unknown property: 4294967295>"},
        {tql::property::user, "user"},
        {tql::property::dnsHost, "dnsHost"},
        {tql::property::dnsIp, "dnsIp"},
        {tql::property::connClose, "connClose"},
        {tql::property::httpUrl, "httpUrl"},
        {tql::property::checkPassword, "checkPassword"},
        {tql::property::smtpExecuteVrfy, "smtpExecuteVrfy"},
        {tql::property::httpStatusRegex, "httpStatusRegex"},
        {tql::property::httpContentRegex, "httpContentRegex"},
        {tql::property::httpVersion, "httpVersion"},
        {tql::property::useSsl, "useSsl"},
        {tql::property::httpUserAgent, "httpUserAgent"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(tql::propertyName(c.number), c.name) << c.number;
}

TEST(Vocabulary, NamesClasses)
{
    struct Case {
        std::uint32_t number;
        const char* name;
    };
    const Case cases[] = {
        {0, "NodeInfoGroup"},        {13, "."},
        {31, "MibTypeEnum"},         {32, "NodeView"},
        {63, "ReportOrder"},         {64, "ForecastLock"},
        {77, "CandidateNode"},       {78, "<unknown class: 78>"},
        {79, "MultiCheck"},          {94, "GraphicalViewNode"},
        {95, "<unknown class: 95>"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(tql::className(c.number), c.name) << c.number;
}

TEST(Vocabulary, LookUpsDoNotGrowTheMaps)
{
    EXPECT_EQ(tql::classNames().size(), 94U);
    EXPECT_EQ(tql::propertyNames().size(), 488U);
    tql::propertyName(321);
    tql::className(78);
    EXPECT_EQ(tql::classNames().size(), 94U);
    EXPECT_EQ(tql::propertyNames().size(), 488U);
}

}  // namespace
