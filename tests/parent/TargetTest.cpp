#include "parent/Target.h"

#include "common/errors.h"
#include "parent/CheckOptions.h"
#include "queues/records/services.h"
#include "tests/support/Case.h"
#include "types/vocabulary.h"

#include <gmock/gmock.h>

#include <optional>

namespace {

using parent::parseTarget;

const std::string longest(253, 'a');

// What a request asks for: port, service and the settings by name.
std::string asked(const parent::Check& check)
{
    const remcheck::remcheck_conf conf = check.request(1);
    std::string text = std::to_string(conf.port) + " " + std::to_string(conf.service);
    for (const auto& [number, property] : conf.properties) {
        std::string value = property->toString();
        if (const auto* string = dynamic_cast<const tql::property_string_t*>(property.get()))
            value = "<" + string->value + ">";
        text += " " + tql::propertyName(number) + "=" + value;
    }
    return text;
}

const struct {
    std::string text;
    std::string host;
    std::string asked;
} goods[] = {
    {"tcp://127.0.0.1:22", "127.0.0.1", "22 6"},
    {"TCP://mail.example.com:1", "mail.example.com", "1 6"},
    {"tcp://255.255.255.255:65535/", "255.255.255.255", "65535 6"},
    {"tcp://h:00080", "h", "80 6"},
    {"tcp://a_b-c.d.:7", "a_b-c.d.", "7 6"},
    {"tcp://h:1?connClose=true", "h", "1 6 connClose=true"},
    {"tcp://h:1/?connClose=false", "h", "1 6 connClose=false"},
    {"tcp://%6cocalhost:1?conn%43lose=%66alse", "localhost", "1 6 connClose=false"},
    {"tcp://" + longest + ":1", longest, "1 6"},
    {"tcp://m\xC3\xBCnchen.de:25", "m\xC3\xBCnchen.de", "25 6"},
    {"dns://h", "h", "53 3"},
    {"dns://h:1/A.b.?expect=1.0.0.1,1.0.0.2", "h", "1 3 dnsHost=<A.b.> dnsIp=<1.0.0.1,1.0.0.2>"},
    {"smtp://h?vrfy", "h", "25 4 smtpExecuteVrfy=true"},
    {"pop3://a%3ab@h", "h", "110 5 user=<a:b> checkPassword=<>"},
    {"POP3S://h", "h", "995 5 useSsl=true"},
    {"imaps://h", "h", "993 8 useSsl=true"},
    {"http://h", "h", "80 1 httpUrl=<http://h/> httpVersion=enum(65568, 1)"},
    {"http://h:81?x=1#e", "h", "81 1 httpUrl=<http://h:81/?x=1> httpVersion=enum(65568, 1)"},
    {"https://h//%20?b@c:d=/", "h",
     "443 1 httpUrl=<http://h//%20?b@c:d=/> httpVersion=enum(65568, 1) useSsl=true"},
};

TEST(Target, IsReadAndAskedFor)
{
    for (const auto& good : goods) {
        support::runCase(good.text, [&] {
            parent::Check check;
            check.target = parseTarget(good.text);
            EXPECT_EQ(check.target.text, good.text);
            EXPECT_EQ(check.target.host, good.host);
            EXPECT_EQ(asked(check), good.asked);
        });
    }
}

// What has a password is shown without it.
TEST(Target, KeepsThePasswordOutOfAllTexts)
{
    const std::pair<std::string, const char*> cases[] = {
        {"ftp://a@b:hush@h", "'@' in the user must be written as %40"},
        {"ftp://u:hush@h:x", "'x' is no port (1 to 65535)"},
        {"ftp://u:hush%zz@h", "a '%' in the password that begins no escape must be written as %25"},
        {"ftp://u:hush/x@h", "'/' in the password must be written as %2f"},
        {"ftp://u%0a:hush@h", "the user holds a line end or a zero byte"},
        {"ftp://u:hush%0d@h", "the password holds a line end or a zero byte"},
        {"ftp://u:hush" + std::string(997, 'p') + "@h", "the password has more than 1000 bytes"},
        {"ftp://:hush@h", "no user in front of the '@'"},
        {"http://u:hush/x@h/", "a user has no meaning here"},
        {"u:hush@h", "no kind of target in front"},
        {"ftp://u%40:%68ush@h", "21 7 user=<u@> checkPassword=<hush>"},
        {"imap://a.b%5D:~hush@h", "143 8 user=<a.b]> checkPassword=<~hush>"},
        {"imap://a%2a:%22hush%5C@h", R"(143 8 user=<"a*"> checkPassword=<"\"hush\\">)"},
        {"imap://\xFF:@h", "143 8 user=<\"\xFF\"> checkPassword=<\"\">"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_THAT(parent::withoutPassword(text), testing::Not(testing::HasSubstr("hush")));
        try {
            parent::Check check;
            check.target = parseTarget(text);
            EXPECT_EQ(asked(check), expected);
            EXPECT_EQ(check.target.text, parent::withoutPassword(text));
        } catch (const error::EParseError& e) {
            EXPECT_EQ(e.text().substr(0, e.text().find(';')), expected);
        }
    }
}

#define FORM "; form: tcp://HOST:PORT[?connClose=true|false]"
#define KNOWN "; known kinds: tcp, dns, smtp, ftp, http, https, pop3, pop3s, imap, imaps"
#define DNS_FORM "; form: dns://HOST[:PORT][/NAME][?expect=ADDRESS,...]"

const struct {
    std::string text;
    std::string message;
} bads[] = {
    {"", "no kind of target in front" KNOWN},
    {"localhost:22", "no kind of target in front" KNOWN},
    {"htp://h:80", "unknown kind of target 'htp'" KNOWN},
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
    {"dns://h/a..b", "a part of the name 'a..b' has not 1 to 63 characters" DNS_FORM},
    {"dns://h/" + longest, "the name has more than 225 characters" DNS_FORM},
    {"dns://h/\xC3\xBC", "the name '\xC3\xBC' must be in its ASCII form (xn--...)" DNS_FORM},
    {"dns://h?expect=1.0.0.1,1.0.0.01", "parameter 'expect' can't be '1.0.0.1,1.0.0.01'" DNS_FORM},
    {"smtp://h?vrfy=",
     "parameter 'vrfy' can't be ''; form: smtp://HOST[:PORT][?vrfy[=true|false]]"},
    {"ftp://h:", "no port; form: ftp://[USER[:PASSWORD]@]HOST[:PORT]"},
    {"http://h/?a\r\nb",
     "'\\r' in the URL must be written as %0d; form: http://HOST[:PORT][/PATH][?QUERY]"},
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

using Options = parent::CheckOptions;

const struct {
    const char* target;
    std::optional<std::string> Options::*option;
    std::string value;
    const char* expected;  // what is asked for, or a part of the reason why not
    std::string note = {};
} options[] = {
    {"http://h:81/?b&a=1", &Options::httpVersion, "1.0", "</?b&a=1> httpVersion=enum(65568, 0)"},
    {"http://h:81/?b&a=1", &Options::hostHeader, "k:82", "httpUrl=<http://k:82/?b&a=1>",
     "http://h:81/?b&a=1: the worker asks for '/?a=1&b='"},
    {"http://h", &Options::contentRegex, "x", "httpContentRegex=<x>"},
    {"http://h", &Options::userAgent, "a b", "httpUserAgent=<a b>"},
    {"http://h/a/?b", &Options::userAgent, "x", "the worker would ask for '/a?b='"},
    {"http://h/?a=1&a=2", &Options::userAgent, "x", "would ask for '/?a=2'"},
    {"http://h", &Options::userAgent, std::string(4096, 'x'), "no room for a request"},
    {"http://h", &Options::httpVersion, "2", "--http-version: '2' is neither 1.0 nor 1.1"},
    {"http://h", &Options::statusRegex, "(", "--status-regex: '(': parentheses not balanced"},
    {"http://h", &Options::userAgent, "a\r\nb", "--user-agent: 'a\\r\\nb' is empty or holds"},
    {"http://h", &Options::hostHeader, "h x", "--host-header: 'h x' is no HOST[:PORT]"},
    {"tcp://h:1", &Options::hostHeader, "h", "goes with targets of the kinds http, https, and"},
    {"ftp://a:b@h", &Options::passwordFile, "/", "--password-file: goes with targets of the kinds"},
    {"ftp://a@h", &Options::passwordFile, "/nonexistent", "': No such file or directory"},
    {"ftp://a@h", &Options::passwordFile, "/tmp", "'/tmp': it is a directory"},
    {"ftp://a@h", &Options::passwordFile, "/dev/null", "'/dev/null': its first line is empty"},
    {"ftp://a@h", &Options::passwordFile, "/dev/zero", "the password has more than 1000 bytes"},
};

TEST(CheckOptions, ChangeWhatIsAskedForOrSayWhyNot)
{
    for (const auto& one : options) {
        support::runCase(one.expected, [&] {
            std::vector<parent::Check> checks(1);
            checks[0].target = parseTarget(one.target);
            Options given;
            given.*one.option = one.value;
            const parent::OptionsVerdict verdict = applyOptions(given, &checks);
            EXPECT_THAT(verdict.reasons.empty() ? asked(checks[0]) : verdict.reasons[0],
                        testing::HasSubstr(one.expected));
            EXPECT_EQ(verdict.notes, std::vector<std::string>(one.note.empty() ? 0 : 1, one.note));
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
