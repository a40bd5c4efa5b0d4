// The numbers that all processes share, and their names.
#include "types/vocabulary.h"

#include <gtest/gtest.h>

namespace {

TEST(Vocabulary, NamesPropertiesAndClasses)
{
    struct Case {
        std::string got, wanted;
    };
    using tql::className, tql::propertyName;
    const Case cases[] = {
        {propertyName(0), "id"},
        {propertyName(555), "checkAttempts"},
        {propertyName(915), "capGridConf"},
        {propertyName(3412), "signKeyPrivate_d"},
        {propertyName(4403), "<unknown property: 4403>"},
        {propertyName(tql::property::smtpExecuteVrfy), "smtpExecuteVrfy"},
        {propertyName(tql::property::httpContentRegex), "httpContentRegex"},
        {className(13), "."},
        {className(78), "<unknown class: 78>"},
        {className(94), "GraphicalViewNode"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.got, c.wanted);
    EXPECT_EQ(tql::classNames().size(), 94U);
    EXPECT_EQ(tql::propertyNames().size(), 488U);
}

}  // namespace
