#include "parent/Target.h"

#include "common/errors.h"
#include "parent/Check.h"
#include "queues/records/services.h"
#include "tests/support/Case.h"
#include "types/vocabulary.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

using parent::parseTarget;

const std::string longest(253, 'a');

const struct {
    std::string text;
    std::string host;
    std::uint16_t port;
    std::optional<bool> connClose;
} goods[] = {
    {"tcp://127.0.0.1:22", "127.0.0.1", 22, {}},
    {"TCP://mail.example.com:1", "mail.example.com", 1, {}},
    {"tcp://255.255.255.255:65535/", "255.255.255.255", 65535, {}},
    {"tcp://h:00080", "h", 80, {}},
    {"tcp://a_b-c.d.:7", "a_b-c.d.", 7, {}},
    {"tcp://h:1?connClose=true", "h", 1, true},
    {"tcp://h:1/?connClose=false", "h", 1, false},
    {"tcp://%6cocalhost:1?conn%43lose=%66alse", "localhost", 1, false},
    {"tcp://" + longest + ":1", longest, 1, {}},
    {"tcp://m\xC3\xBCnchen.de:25", "m\xC3\xBCnchen.de", 25, {}},
};

TEST(Target, IsReadWithItsParameters)
{
    for (const auto& good : goods) {
        support::runCase(good.text, [&] {
            const parent::Target target = parseTarget(good.text);
            EXPECT_EQ(target.text, good.text);
            EXPECT_EQ(target.host, good.host);
            EXPECT_EQ(target.port, good.port);
            EXPECT_EQ(target.kind->service, services::SERVICE_TCP);
            bool connClose = true;
            const auto found = target.properties.find(tql::property::connClose);
            EXPECT_EQ(found != target.properties.end(), good.connClose.has_value());
            if (found != target.properties.end())
                tql::getBool(*found->second, connClose);
            EXPECT_EQ(connClose, good.connClose.value_or(true));
        });
    }
}

#define FORM "; form: tcp://HOST:PORT[?connClose=true|false]"
#define KNOWN "; known forms: tcp://HOST:PORT[?connClose=true|false]"

const struct {
    std::string text;
    const char* message;
} bads[] = {
    {"", "no kind of target in front" KNOWN},
    {"localhost:22", "no kind of target in front" KNOWN},
    {"http://h:80", "unknown kind of target 'http'" KNOWN},
    {"tc\x1bp://h:80", "unknown kind of target 'tc\\x1bp'" KNOWN},
    {"tcp://", "no host" FORM},
    {"tcp://%zz:80", "'%zz' is no percent escape" FORM},
    {"tcp://a%00b:80", "'\\x00' in the host 'a\\x00b'" FORM},
    {"tcp://a" + longest + ":1", "the host has more than 253 characters" FORM},
    {"tcp://h", "no port" FORM},
    {"tcp://h:0", "'0' is no port (1 to 65535)" FORM},
    {"tcp://h:65536", "'65536' is no port (1 to 65535)" FORM},
    {"tcp://h:4294967376", "'4294967376' is no port (1 to 65535)" FORM},
    {"tcp://h:8o", "'8o' is no port (1 to 65535)" FORM},
    {"tcp://h:+80", "'+80' is no port (1 to 65535)" FORM},
    {"tcp://256.0.0.1:1", "'256.0.0.1' is no IPv4 address" FORM},
    {"tcp://10.1:1", "'10.1' is no IPv4 address" FORM},
    {"tcp://010.0.0.1:1", "'010.0.0.1' is no IPv4 address" FORM},
    {"tcp://[::1]:80",
     "IPv6 addresses are not supported ('[::1]:80'): give an IPv4 address or a name" FORM},
    {"tcp://u:p@h:80", "a user has no meaning here" FORM},
    {"tcp://h:80/x", "a path ('/x') has no meaning here" FORM},
    {"tcp://h:80#x", "'#' has no meaning here" FORM},
    {"tcp://h:80?connClose=true&", "a parameter without a name" FORM},
    {"tcp://h:80?connclose=true", "unknown parameter 'connclose'" FORM},
    {"tcp://h:80?connClose", "parameter 'connClose' has no value" FORM},
    {"tcp://h:80?connClose=yes", "parameter 'connClose' can't be 'yes'" FORM},
    {"tcp://h:80?connClose=true&connClose=false", "parameter 'connClose' is given twice" FORM},
};

TEST(Target, SaysWhatIsWrongAndWhichFormsExist)
{
    for (const auto& bad : bads) {
        support::runCase(bad.text, [&] {
            try {
                parseTarget(bad.text);
                ADD_FAILURE() << "was accepted";
            } catch (const error::EParseError& e) {
                EXPECT_EQ(e.text(), bad.message);
            }
        });
    }
}

TEST(Check, AsksForWhatTheTargetSays)
{
    std::vector<parent::Check> checks(1);
    parent::Check& check = checks[0];
    check.target = parseTarget("tcp://10.0.0.1:80?connClose=false");
    check.warnIfAbove = 100;
    check.alertIfAbove = 200;
    parent::resolve(&checks);
    const remcheck::remcheck_conf conf = check.request(77);
    EXPECT_EQ(conf.host, "10.0.0.1");
    EXPECT_EQ(conf.addr, 0x0100000AU);  // network order on a little-endian machine
    EXPECT_EQ(conf.id, tql::id_t{77});
    EXPECT_EQ(conf.port, 80U);
    EXPECT_EQ(conf.warnIfAbove, 100);
    EXPECT_EQ(conf.alertIfAbove, 200);
    EXPECT_EQ(conf.properties.size(), 1U);
    EXPECT_EQ(check.limitMs(), 10'200);
}

}  // namespace
