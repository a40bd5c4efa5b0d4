// All messages of the client protocol.
//
// Enumerated classes, lists and sets, then the sequences and the alternatives of unions, each
// behind what it is made of, then the top-level messages. A field that the protocol doesn't name is
// called by its kind and position. How a class follows from its table: Message.h.
#pragma once

#include "protocol/BerLists.h"
#include "protocol/Message.h"

#include <cstdint>
#include <span>
#include <string>

namespace protocol {

struct CheckType final : BerEnumeratedOf<CheckType> {
    using BerEnumeratedOf::BerEnumeratedOf;
    static constexpr const char* name = "CheckType";
};
struct Decision final : BerEnumeratedOf<Decision> {
    using BerEnumeratedOf::BerEnumeratedOf;
    static constexpr const char* name = "Decision";
};
struct SeparatorInclusion final : BerEnumeratedOf<SeparatorInclusion> {
    using BerEnumeratedOf::BerEnumeratedOf;
    static constexpr const char* name = "SeparatorInclusion";
};
struct CheckStatus final : BerEnumeratedOf<CheckStatus> {
    using BerEnumeratedOf::BerEnumeratedOf;
    static constexpr const char* name = "CheckStatus";
};
struct RelOperator final : BerEnumeratedOf<RelOperator> {
    using BerEnumeratedOf::BerEnumeratedOf;
    static constexpr const char* name = "RelOperator";
};
struct Severity final : BerEnumeratedOf<Severity> {
    using BerEnumeratedOf::BerEnumeratedOf;
    static constexpr const char* name = "Severity";
};

struct ActionConf;
struct ActionConfGroup;
struct Check;
struct CheckConf;
struct CheckConfGroup;
struct CheckDescription;
struct CheckGroup;
struct CheckResult;
struct DataInterval;
struct DataIntervalRawElement;
struct HostInfoLine;
struct Object;
struct PathPattern;
struct Property;
struct RelativeExpr;
struct Rule;
struct ServerNamePort;

struct ListOfString128 final : BerList<ListOfString128, TextKind> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfString128";
    static constexpr Field element = textElement(128);
};

struct ListOfCheckResult final : BerList<ListOfCheckResult, NestedKind<CheckResult>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfCheckResult";
    static constexpr Field element = elementOf<NestedKind<CheckResult>>();
};

struct ListOfActionConf final : BerList<ListOfActionConf, NestedKind<ActionConf>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfActionConf";
    static constexpr Field element = elementOf<NestedKind<ActionConf>>();
};

struct ListOfActionConfGroup final : BerList<ListOfActionConfGroup, NestedKind<ActionConfGroup>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfActionConfGroup";
    static constexpr Field element = elementOf<NestedKind<ActionConfGroup>>();
};

struct ListOfCheckDescription final
    : BerList<ListOfCheckDescription, NestedKind<CheckDescription>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfCheckDescription";
    static constexpr Field element = elementOf<NestedKind<CheckDescription>>();
};

struct ListOfCheck final : BerList<ListOfCheck, NestedKind<Check>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfCheck";
    static constexpr Field element = elementOf<NestedKind<Check>>();
};

struct ListOfCheckGroup final : BerList<ListOfCheckGroup, NestedKind<CheckGroup>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfCheckGroup";
    static constexpr Field element = elementOf<NestedKind<CheckGroup>>();
};

struct ListOfHostInfoLine final : BerList<ListOfHostInfoLine, NestedKind<HostInfoLine>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfHostInfoLine";
    static constexpr Field element = elementOf<NestedKind<HostInfoLine>>();
};

struct ListOfRule final : BerList<ListOfRule, NestedKind<Rule>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfRule";
    static constexpr Field element = elementOf<NestedKind<Rule>>();
};

struct ListOfCheckStatus final : BerList<ListOfCheckStatus, EnumeratedKind<CheckStatus>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfCheckStatus";
    static constexpr Field element = elementOf<EnumeratedKind<CheckStatus>>();
};

struct ListOfCheckConf final : BerList<ListOfCheckConf, NestedKind<CheckConf>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfCheckConf";
    static constexpr Field element = elementOf<NestedKind<CheckConf>>();
};

struct ListOfCheckConfGroup final : BerList<ListOfCheckConfGroup, NestedKind<CheckConfGroup>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfCheckConfGroup";
    static constexpr Field element = elementOf<NestedKind<CheckConfGroup>>();
};

struct ListOfServerNamePort final : BerList<ListOfServerNamePort, NestedKind<ServerNamePort>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfServerNamePort";
    static constexpr Field element = elementOf<NestedKind<ServerNamePort>>();
};

struct SetOfString128 final : BerList<SetOfString128, TextKind, true> {
    using BerList::BerList;
    static constexpr const char* name = "SetOfString128";
    static constexpr Field element = textElement(128);
};

struct ListOfRelativeExpr final : BerList<ListOfRelativeExpr, NestedKind<RelativeExpr>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfRelativeExpr";
    static constexpr Field element = elementOf<NestedKind<RelativeExpr>>();
};

struct ListOfPathPattern final : BerList<ListOfPathPattern, NestedKind<PathPattern>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfPathPattern";
    static constexpr Field element = elementOf<NestedKind<PathPattern>>();
};

struct SetOfString32 final : BerList<SetOfString32, TextKind, true> {
    using BerList::BerList;
    static constexpr const char* name = "SetOfString32";
    static constexpr Field element = textElement(32);
};

struct ListOfReal final : BerList<ListOfReal, RealKind> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfReal";
    static constexpr Field element = elementOf<RealKind>();
};

struct ListOfDataIntervalRawElement final
    : BerList<ListOfDataIntervalRawElement, NestedKind<DataIntervalRawElement>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfDataIntervalRawElement";
    static constexpr Field element = elementOf<NestedKind<DataIntervalRawElement>>();
};

struct ListOfDataInterval final : BerList<ListOfDataInterval, NestedKind<DataInterval>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfDataInterval";
    static constexpr Field element = elementOf<NestedKind<DataInterval>>();
};

struct SetOfInteger0x0to0xffffffff final
    : BerList<SetOfInteger0x0to0xffffffff, NumberKind<std::uint32_t>, true> {
    using BerList::BerList;
    static constexpr const char* name = "SetOfInteger0x0to0xffffffff";
    static constexpr Field element = elementOf<NumberKind<std::uint32_t>>();
};

struct ListOfInteger0x0to0xffffffff final
    : BerList<ListOfInteger0x0to0xffffffff, NumberKind<std::uint32_t>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfInteger0x0to0xffffffff";
    static constexpr Field element = elementOf<NumberKind<std::uint32_t>>();
};

struct ListOfString1024 final : BerList<ListOfString1024, TextKind> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfString1024";
    static constexpr Field element = textElement(1024);
};

struct ListOfProperty final : BerList<ListOfProperty, NestedKind<Property>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfProperty";
    static constexpr Field element = elementOf<NestedKind<Property>>();
};

struct ListOfObject final : BerList<ListOfObject, NestedKind<Object>> {
    using BerList::BerList;
    static constexpr const char* name = "ListOfObject";
    static constexpr Field element = elementOf<NestedKind<Object>>();
};

struct ClientNoAuth final : MessageOf<ClientNoAuth> {
    static constexpr Schema layout = alternative("ClientNoAuth", 0);
};

struct ClientPrivateKey final : MessageOf<ClientPrivateKey> {
    std::string text0;
    std::string text1;
    std::string text2;
    bool flag3 = false;
    bool flag4 = false;
    bool flag5 = false;

    static constexpr Field fields[] = {
        text<&ClientPrivateKey::text0>(256), text<&ClientPrivateKey::text1>(1024),
        text<&ClientPrivateKey::text2>(128), boolean<&ClientPrivateKey::flag3>(),
        boolean<&ClientPrivateKey::flag4>(), boolean<&ClientPrivateKey::flag5>(),
    };
    static constexpr Schema layout = alternative("ClientPrivateKey", 1, 4, fields);
};

struct ClientPassword final : MessageOf<ClientPassword> {
    static constexpr Schema layout = alternative("ClientPassword", 2);
};

struct WantsLinkHandshake final : MessageOf<WantsLinkHandshake> {
    std::uint32_t number0 = 0;
    BigNum bignum1;
    BigNum bignum2;
    BigNum bignum3;
    BigNum bignum4;

    static constexpr Field fields[] = {
        number<&WantsLinkHandshake::number0>(), bignum<&WantsLinkHandshake::bignum1>(),
        bignum<&WantsLinkHandshake::bignum2>(), bignum<&WantsLinkHandshake::bignum3>(),
        bignum<&WantsLinkHandshake::bignum4>(),
    };
    static constexpr Schema layout = alternative("WantsLinkHandshake", 3, 5, fields);
};

struct ServerNoAuth final : MessageOf<ServerNoAuth> {
    static constexpr Schema layout = alternative("ServerNoAuth", 0);
};

struct ServerPrivateKey final : MessageOf<ServerPrivateKey> {
    bool flag0 = false;
    bool flag1 = false;

    static constexpr Field fields[] = {
        boolean<&ServerPrivateKey::flag0>(),
        boolean<&ServerPrivateKey::flag1>(),
    };
    static constexpr Schema layout = alternative("ServerPrivateKey", 1, 1, fields);
};

struct ServerPassword final : MessageOf<ServerPassword> {
    static constexpr Schema layout = alternative("ServerPassword", 2);
};

struct LinkHandshakeInit final : MessageOf<LinkHandshakeInit> {
    std::uint32_t number0 = 0;
    BigNum bignum1;
    BigNum bignum2;
    BigNum bignum3;
    BigNum bignum4;

    static constexpr Field fields[] = {
        number<&LinkHandshakeInit::number0>(), bignum<&LinkHandshakeInit::bignum1>(),
        bignum<&LinkHandshakeInit::bignum2>(), bignum<&LinkHandshakeInit::bignum3>(),
        bignum<&LinkHandshakeInit::bignum4>(),
    };
    static constexpr Schema layout = alternative("LinkHandshakeInit", 3, 5, fields);
};

struct HostInfoLine final : MessageOf<HostInfoLine> {
    std::string text0;
    std::string text1;

    static constexpr Field fields[] = {
        text<&HostInfoLine::text0>(128),
        text<&HostInfoLine::text1>(1024),
    };
    static constexpr Schema layout = sequence("HostInfoLine", "BE_HOST_INFO_LINE", 2, fields);
};

struct Check final : MessageOf<Check> {
    std::string text0;
    std::string text1;
    std::string text2;
    std::int32_t checkType3 = 0;
    std::string text4;
    Held<BerValue> value;
    Held<BerValue> min;
    Held<BerValue> max;
    std::int32_t number8 = 0;

    static constexpr Field fields[] = {
        text<&Check::text0>(128),    text<&Check::text1>(128),
        text<&Check::text2>(512),    enumerated<&Check::checkType3, CheckType>(),
        text<&Check::text4>(128),    variant<&Check::value>("value"),
        variant<&Check::min>("min"), variant<&Check::max>("max"),
        number<&Check::number8>(),
    };
    static constexpr Schema layout = sequence("Check", "BE_CHECK", 7, fields);
};

struct CheckGroup final : MessageOf<CheckGroup> {
    std::string text0;
    std::string text1;
    ListOfCheck::list_t list2;
    ListOfCheckGroup::list_t list3;
    std::string text4;
    bool flag5 = false;

    static constexpr Field fields[] = {
        text<&CheckGroup::text0>(128),           text<&CheckGroup::text1>(128),
        list<&CheckGroup::list2, ListOfCheck>(), list<&CheckGroup::list3, ListOfCheckGroup>(),
        text<&CheckGroup::text4>(128),           boolean<&CheckGroup::flag5>(),
    };
    static constexpr Schema layout = sequence("CheckGroup", "BE_CHECK_GROUP", 4, fields);
};

struct CheckDescription final : MessageOf<CheckDescription> {
    std::int32_t number0 = 0;
    std::string text1;
    std::string text2;
    std::string text3;

    static constexpr Field fields[] = {
        number<&CheckDescription::number0>(),
        text<&CheckDescription::text1>(128),
        text<&CheckDescription::text2>(128),
        text<&CheckDescription::text3>(128),
    };
    static constexpr Schema layout =
        sequence("CheckDescription", "BE_CHECK_DESCRIPTION", 4, fields);
};

struct ServerNamePort final : MessageOf<ServerNamePort> {
    std::string text0;
    std::int32_t number1 = 0;

    static constexpr Field fields[] = {
        text<&ServerNamePort::text0>(256),
        number<&ServerNamePort::number1>(1, 65535),
    };
    static constexpr Schema layout = sequence("ServerNamePort", "BE_SERVER_NAME_PORT", 2, fields);
};

struct ContinuousConf final : MessageOf<ContinuousConf> {
    Held<BerValue> alertIfAbove;
    Held<BerValue> alertIfBelow;
    Held<BerValue> warnIfAbove;
    Held<BerValue> warnIfBelow;

    static constexpr Field fields[] = {
        variant<&ContinuousConf::alertIfAbove>("alertIfAbove"),
        variant<&ContinuousConf::alertIfBelow>("alertIfBelow"),
        variant<&ContinuousConf::warnIfAbove>("warnIfAbove"),
        variant<&ContinuousConf::warnIfBelow>("warnIfBelow"),
    };
    static constexpr Schema layout = alternative("ContinuousConf", 0, 2, fields);
};

struct EnumConf final : MessageOf<EnumConf> {
    ListOfCheckStatus::list_t list0;

    static constexpr Field fields[] = {
        list<&EnumConf::list0, ListOfCheckStatus>(),
    };
    static constexpr Schema layout = alternative("EnumConf", 1, 1, fields);
};

struct LogConf final : MessageOf<LogConf> {
    static constexpr Schema layout = alternative("LogConf", 2);
};

struct RealContinuousConf final : MessageOf<RealContinuousConf> {
    Held<BerValue> alertIfAbove;
    Held<BerValue> alertIfBelow;
    Held<BerValue> warnIfAbove;
    Held<BerValue> warnIfBelow;

    static constexpr Field fields[] = {
        variant<&RealContinuousConf::alertIfAbove>("alertIfAbove"),
        variant<&RealContinuousConf::alertIfBelow>("alertIfBelow"),
        variant<&RealContinuousConf::warnIfAbove>("warnIfAbove"),
        variant<&RealContinuousConf::warnIfBelow>("warnIfBelow"),
    };
    static constexpr Schema layout = alternative("RealContinuousConf", 3, 2, fields);
};

struct Rule final : MessageOf<Rule> {
    std::string text0;
    std::int32_t checkStatus1 = 0;
    std::int32_t decision2 = 0;
    std::string text3;

    static constexpr Field fields[] = {
        text<&Rule::text0>(1024),
        enumerated<&Rule::checkStatus1, CheckStatus>(),
        enumerated<&Rule::decision2, Decision>(),
        text<&Rule::text3>(32),
    };
    static constexpr Schema layout = sequence("Rule", "BE_RULE", 3, fields);
};

struct AdvLogConf final : MessageOf<AdvLogConf> {
    std::string text0;
    std::int32_t separatorInclusion1 = 0;
    ListOfRule::list_t list2;
    Nullable<std::int32_t> number3;
    Nullable<std::int32_t> number4;

    static constexpr Field fields[] = {
        text<&AdvLogConf::text0>(1024),
        enumerated<&AdvLogConf::separatorInclusion1, SeparatorInclusion>(),
        list<&AdvLogConf::list2, ListOfRule>(),
        nullable<&AdvLogConf::number3>(),
        nullable<&AdvLogConf::number4>(),
    };
    static constexpr Schema layout = alternative("AdvLogConf", 4, 3, fields);
};

struct CheckConf final : MessageOf<CheckConf> {
    std::int32_t number0 = 0;
    std::string text1;
    Held<BerValue> conf;
    std::string text3;

    static constexpr Field fields[] = {
        number<&CheckConf::number0>(-1, 86400),
        text<&CheckConf::text1>(128),
        unionOf<&CheckConf::conf, ContinuousConf, EnumConf, LogConf, RealContinuousConf,
                AdvLogConf>("conf"),
        text<&CheckConf::text3>(32),
    };
    static constexpr Schema layout = sequence("CheckConf", "BE_CHECK_CONF", 3, fields);
};

struct CheckConfGroup final : MessageOf<CheckConfGroup> {
    std::string text0;
    ListOfCheckConf::list_t list1;
    ListOfCheckConfGroup::list_t list2;

    static constexpr Field fields[] = {
        text<&CheckConfGroup::text0>(128),
        list<&CheckConfGroup::list1, ListOfCheckConf>(),
        list<&CheckConfGroup::list2, ListOfCheckConfGroup>(),
    };
    static constexpr Schema layout = sequence("CheckConfGroup", "BE_CHECK_CONF_GROUP", 3, fields);
};

struct CheckResult final : MessageOf<CheckResult> {
    std::int32_t number0 = 0;
    std::string text1;
    std::int32_t checkStatus2 = 0;
    ListOfString128::list_t list3;
    Held<BerValue> value;
    std::string text5;

    static constexpr Field fields[] = {
        number<&CheckResult::number0>(),
        text<&CheckResult::text1>(128),
        enumerated<&CheckResult::checkStatus2, CheckStatus>(),
        list<&CheckResult::list3, ListOfString128>(),
        variant<&CheckResult::value>("value"),
        text<&CheckResult::text5>(32),
    };
    static constexpr Schema layout = sequence("CheckResult", "BE_CHECK_RESULT", 5, fields);
};

struct ActionConf final : MessageOf<ActionConf> {
    std::string text0;

    static constexpr Field fields[] = {
        text<&ActionConf::text0>(128),
    };
    static constexpr Schema layout = sequence("ActionConf", "BE_ACTION_CONF", 1, fields);
};

struct ActionConfGroup final : MessageOf<ActionConfGroup> {
    std::string text0;
    ListOfActionConfGroup::list_t list1;
    ListOfActionConf::list_t list2;

    static constexpr Field fields[] = {
        text<&ActionConfGroup::text0>(128),
        list<&ActionConfGroup::list1, ListOfActionConfGroup>(),
        list<&ActionConfGroup::list2, ListOfActionConf>(),
    };
    static constexpr Schema layout = sequence("ActionConfGroup", "BE_ACTION_CONF_GROUP", 3, fields);
};

struct StringProp final : MessageOf<StringProp> {
    std::string text0;

    static constexpr Field fields[] = {
        text<&StringProp::text0>(1024),
    };
    static constexpr Schema layout = alternative("StringProp", 0, 1, fields);
};

struct StringListProp final : MessageOf<StringListProp> {
    ListOfString1024::list_t list0;

    static constexpr Field fields[] = {
        list<&StringListProp::list0, ListOfString1024>(),
    };
    static constexpr Schema layout = alternative("StringListProp", 1, 1, fields);
};

struct SignedIntProp final : MessageOf<SignedIntProp> {
    std::int32_t number0 = 0;

    static constexpr Field fields[] = {
        number<&SignedIntProp::number0>(),
    };
    static constexpr Schema layout = alternative("SignedIntProp", 2, 1, fields);
};

struct UnsignedIntProp final : MessageOf<UnsignedIntProp> {
    std::uint32_t number0 = 0;

    static constexpr Field fields[] = {
        number<&UnsignedIntProp::number0>(),
    };
    static constexpr Schema layout = alternative("UnsignedIntProp", 3, 1, fields);
};

struct RealProp final : MessageOf<RealProp> {
    double real0 = 0;

    static constexpr Field fields[] = {
        real<&RealProp::real0>(),
    };
    static constexpr Schema layout = alternative("RealProp", 4, 1, fields);
};

struct BooleanProp final : MessageOf<BooleanProp> {
    bool flag0 = false;

    static constexpr Field fields[] = {
        boolean<&BooleanProp::flag0>(),
    };
    static constexpr Schema layout = alternative("BooleanProp", 5, 1, fields);
};

struct NullProp final : MessageOf<NullProp> {
    static constexpr Schema layout = alternative("NullProp", 6);
};

struct BlobProp final : MessageOf<BlobProp> {
    std::string text0;

    static constexpr Field fields[] = {
        text<&BlobProp::text0>(2048),
    };
    static constexpr Schema layout = alternative("BlobProp", 7, 1, fields);
};

struct UnsignedIntListProp final : MessageOf<UnsignedIntListProp> {
    ListOfInteger0x0to0xffffffff::list_t list0;

    static constexpr Field fields[] = {
        list<&UnsignedIntListProp::list0, ListOfInteger0x0to0xffffffff>(),
    };
    static constexpr Schema layout = alternative("UnsignedIntListProp", 8, 1, fields);
};

struct SignedInt64Prop final : MessageOf<SignedInt64Prop> {
    std::int64_t number0 = 0;

    static constexpr Field fields[] = {
        number<&SignedInt64Prop::number0>(),
    };
    static constexpr Schema layout = alternative("SignedInt64Prop", 9, 1, fields);
};

struct UnsignedInt64Prop final : MessageOf<UnsignedInt64Prop> {
    std::uint64_t number0 = 0;

    static constexpr Field fields[] = {
        number<&UnsignedInt64Prop::number0>(),
    };
    static constexpr Schema layout = alternative("UnsignedInt64Prop", 10, 1, fields);
};

struct BigNumProp final : MessageOf<BigNumProp> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&BigNumProp::bignum0>(),
    };
    static constexpr Schema layout = alternative("BigNumProp", 11, 1, fields);
};

struct LobProp final : MessageOf<LobProp> {
    std::string text0;

    static constexpr Field fields[] = {
        text<&LobProp::text0>(2097152),
    };
    static constexpr Schema layout = alternative("LobProp", 12, 1, fields);
};

struct Property final : MessageOf<Property> {
    std::string text0;
    std::uint32_t number1 = 0;
    Held<BerValue> data;

    static constexpr Field fields[] = {
        text<&Property::text0>(128),
        number<&Property::number1>(),
        unionOf<&Property::data, StringProp, StringListProp, SignedIntProp, UnsignedIntProp,
                RealProp, BooleanProp, NullProp, BlobProp, UnsignedIntListProp, SignedInt64Prop,
                UnsignedInt64Prop, BigNumProp, LobProp>("data"),
    };
    static constexpr Schema layout = sequence("Property", "BE_PROPERTY", 3, fields);
};

struct RelativeExpr final : MessageOf<RelativeExpr> {
    Held<Property> prop;
    std::int32_t relOperator1 = 0;

    static constexpr Field fields[] = {
        nested<&RelativeExpr::prop, Property>("prop"),
        enumerated<&RelativeExpr::relOperator1, RelOperator>(),
    };
    static constexpr Schema layout = sequence("RelativeExpr", "BE_RELATIVE_EXPR", 2, fields);
};

struct PathPattern final : MessageOf<PathPattern> {
    std::string text0;
    std::uint32_t number1 = 0;
    Nullable<std::uint32_t> number2;
    ListOfPathPattern::list_t list3;
    ListOfPathPattern::list_t list4;
    ListOfRelativeExpr::list_t list5;
    SetOfString128::list_t set6;

    static constexpr Field fields[] = {
        text<&PathPattern::text0>(128),
        number<&PathPattern::number1>(),
        nullable<&PathPattern::number2>(),
        list<&PathPattern::list3, ListOfPathPattern>(),
        list<&PathPattern::list4, ListOfPathPattern>(),
        list<&PathPattern::list5, ListOfRelativeExpr>(),
        list<&PathPattern::set6, SetOfString128>(),
    };
    static constexpr Schema layout = sequence("PathPattern", "BE_PATH_PATTERN", 7, fields);
};

struct SelectReq final : MessageOf<SelectReq> {
    SetOfString32::list_t set0;
    Held<PathPattern> pattern;
    std::uint32_t number2 = 0;

    static constexpr Field fields[] = {
        list<&SelectReq::set0, SetOfString32>(),
        nested<&SelectReq::pattern, PathPattern>("pattern"),
        number<&SelectReq::number2>(),
    };
    static constexpr Schema layout = alternative("SelectReq", 0, 3, fields);
};

struct EraseReq final : MessageOf<EraseReq> {
    std::string text0;
    std::string text1;

    static constexpr Field fields[] = {
        text<&EraseReq::text0>(32),
        text<&EraseReq::text1>(52),
    };
    static constexpr Schema layout = alternative("EraseReq", 1, 2, fields);
};

struct UpdateReq final : MessageOf<UpdateReq> {
    std::string text0;
    std::string text1;
    ListOfProperty::list_t list2;

    static constexpr Field fields[] = {
        text<&UpdateReq::text0>(32),
        text<&UpdateReq::text1>(52),
        list<&UpdateReq::list2, ListOfProperty>(),
    };
    static constexpr Schema layout = alternative("UpdateReq", 2, 3, fields);
};

struct CreateReq final : MessageOf<CreateReq> {
    std::string text0;
    std::string text1;
    ListOfProperty::list_t list2;

    static constexpr Field fields[] = {
        text<&CreateReq::text0>(32),
        text<&CreateReq::text1>(128),
        list<&CreateReq::list2, ListOfProperty>(),
    };
    static constexpr Schema layout = alternative("CreateReq", 3, 3, fields);
};

struct ForgetReq final : MessageOf<ForgetReq> {
    std::int32_t number0 = 0;

    static constexpr Field fields[] = {
        number<&ForgetReq::number0>(0, 2147483647),
    };
    static constexpr Schema layout = alternative("ForgetReq", 5, 1, fields);
};

struct GetDataReq final : MessageOf<GetDataReq> {
    std::string text0;
    std::string text1;
    bool flag2 = false;
    std::int32_t number3 = 0;
    std::int32_t number4 = 0;
    std::int32_t number5 = 0;
    std::int32_t number6 = 0;

    static constexpr Field fields[] = {
        text<&GetDataReq::text0>(32),   text<&GetDataReq::text1>(16),
        boolean<&GetDataReq::flag2>(),  number<&GetDataReq::number3>(),
        number<&GetDataReq::number4>(), number<&GetDataReq::number5>(0, 2000),
        number<&GetDataReq::number6>(),
    };
    static constexpr Schema layout = alternative("GetDataReq", 6, 6, fields);
};

struct DataIntervalRawElement final : MessageOf<DataIntervalRawElement> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;
    double real2 = 0;
    double real3 = 0;
    double real4 = 0;
    std::uint32_t number5 = 0;
    std::uint32_t number6 = 0;

    static constexpr Field fields[] = {
        number<&DataIntervalRawElement::number0>(), number<&DataIntervalRawElement::number1>(),
        real<&DataIntervalRawElement::real2>(),     real<&DataIntervalRawElement::real3>(),
        real<&DataIntervalRawElement::real4>(),     number<&DataIntervalRawElement::number5>(),
        number<&DataIntervalRawElement::number6>(),
    };
    static constexpr Schema layout =
        sequence("DataIntervalRawElement", "BE_DATA_INTERVAL_RAW_ELEMENT", 3, fields);
};

struct DataIntervalRawDEPRECATED final : MessageOf<DataIntervalRawDEPRECATED> {
    ListOfDataIntervalRawElement::list_t list0;

    static constexpr Field fields[] = {
        list<&DataIntervalRawDEPRECATED::list0, ListOfDataIntervalRawElement>(),
    };
    static constexpr Schema layout = alternative("DataIntervalRawDEPRECATED", 0, 1, fields);
};

struct DataIntervalIncident final : MessageOf<DataIntervalIncident> {
    std::int32_t number0 = 0;
    std::int32_t severity1 = 0;
    std::string text2;

    static constexpr Field fields[] = {
        number<&DataIntervalIncident::number0>(),
        enumerated<&DataIntervalIncident::severity1, Severity>(),
        text<&DataIntervalIncident::text2>(65536),
    };
    static constexpr Schema layout = alternative("DataIntervalIncident", 1, 3, fields);
};

struct DataIntervalContinuousDEPRECATED final : MessageOf<DataIntervalContinuousDEPRECATED> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;
    double real2 = 0;
    double real3 = 0;
    ListOfReal::list_t list4;

    static constexpr Field fields[] = {
        number<&DataIntervalContinuousDEPRECATED::number0>(),
        number<&DataIntervalContinuousDEPRECATED::number1>(),
        real<&DataIntervalContinuousDEPRECATED::real2>(),
        real<&DataIntervalContinuousDEPRECATED::real3>(),
        list<&DataIntervalContinuousDEPRECATED::list4, ListOfReal>(),
    };
    static constexpr Schema layout = alternative("DataIntervalContinuousDEPRECATED", 2, 3, fields);
};

struct DataIntervalSawtooth final : MessageOf<DataIntervalSawtooth> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;
    double real2 = 0;
    double real3 = 0;
    double real4 = 0;
    std::uint32_t number5 = 0;
    std::uint32_t number6 = 0;

    static constexpr Field fields[] = {
        number<&DataIntervalSawtooth::number0>(), number<&DataIntervalSawtooth::number1>(),
        real<&DataIntervalSawtooth::real2>(),     real<&DataIntervalSawtooth::real3>(),
        real<&DataIntervalSawtooth::real4>(),     number<&DataIntervalSawtooth::number5>(),
        number<&DataIntervalSawtooth::number6>(),
    };
    static constexpr Schema layout = alternative("DataIntervalSawtooth", 3, 3, fields);
};

struct DataIntervalEnum final : MessageOf<DataIntervalEnum> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;
    std::uint32_t number2 = 0;
    std::uint32_t number3 = 0;
    std::uint32_t number4 = 0;

    static constexpr Field fields[] = {
        number<&DataIntervalEnum::number0>(), number<&DataIntervalEnum::number1>(),
        number<&DataIntervalEnum::number2>(), number<&DataIntervalEnum::number3>(),
        number<&DataIntervalEnum::number4>(),
    };
    static constexpr Schema layout = alternative("DataIntervalEnum", 4, 3, fields);
};

struct DataIntervalContinuous final : MessageOf<DataIntervalContinuous> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;
    double real2 = 0;
    double real3 = 0;
    double real4 = 0;
    std::uint32_t number5 = 0;
    std::uint32_t number6 = 0;

    static constexpr Field fields[] = {
        number<&DataIntervalContinuous::number0>(), number<&DataIntervalContinuous::number1>(),
        real<&DataIntervalContinuous::real2>(),     real<&DataIntervalContinuous::real3>(),
        real<&DataIntervalContinuous::real4>(),     number<&DataIntervalContinuous::number5>(),
        number<&DataIntervalContinuous::number6>(),
    };
    static constexpr Schema layout = alternative("DataIntervalContinuous", 5, 3, fields);
};

struct DataInterval final : MessageOf<DataInterval> {
    Held<BerValue> data;

    static constexpr Field fields[] = {
        unionOf<&DataInterval::data, DataIntervalRawDEPRECATED, DataIntervalIncident,
                DataIntervalContinuousDEPRECATED, DataIntervalSawtooth, DataIntervalEnum,
                DataIntervalContinuous>("data"),
    };
    static constexpr Schema layout = sequence("DataInterval", "BE_DATA_INTERVAL", 1, fields);
};

struct PutDataReq final : MessageOf<PutDataReq> {
    std::string text0;
    std::string text1;
    std::int32_t number2 = 0;
    ListOfDataInterval::list_t list3;

    static constexpr Field fields[] = {
        text<&PutDataReq::text0>(32),
        text<&PutDataReq::text1>(16),
        number<&PutDataReq::number2>(0, 17),
        list<&PutDataReq::list3, ListOfDataInterval>(),
    };
    static constexpr Schema layout = alternative("PutDataReq", 7, 4, fields);
};

struct GetLastDataReq final : MessageOf<GetLastDataReq> {
    std::string text0;
    std::string text1;

    static constexpr Field fields[] = {
        text<&GetLastDataReq::text0>(32),
        text<&GetLastDataReq::text1>(16),
    };
    static constexpr Schema layout = alternative("GetLastDataReq", 8, 2, fields);
};

struct Object final : MessageOf<Object> {
    std::string text0;
    std::uint32_t number1 = 0;
    std::string text2;
    std::string text3;
    ListOfProperty::list_t list4;
    ListOfObject::list_t list5;
    SetOfInteger0x0to0xffffffff::list_t set6;

    static constexpr Field fields[] = {
        text<&Object::text0>(128),
        number<&Object::number1>(),
        text<&Object::text2>(32),
        text<&Object::text3>(52),
        list<&Object::list4, ListOfProperty>(),
        list<&Object::list5, ListOfObject>(),
        list<&Object::set6, SetOfInteger0x0to0xffffffff>(),
    };
    static constexpr Schema layout = sequence("Object", "BE_OBJECT", 7, fields);
};

struct CallReq final : MessageOf<CallReq> {
    std::int32_t number0 = 0;
    ListOfProperty::list_t list1;
    ListOfObject::list_t list2;

    static constexpr Field fields[] = {
        number<&CallReq::number0>(),
        list<&CallReq::list1, ListOfProperty>(),
        list<&CallReq::list2, ListOfObject>(),
    };
    static constexpr Schema layout = alternative("CallReq", 9, 2, fields);
};

struct SelectResp final : MessageOf<SelectResp> {
    ListOfObject::list_t list0;

    static constexpr Field fields[] = {
        list<&SelectResp::list0, ListOfObject>(),
    };
    static constexpr Schema layout = alternative("SelectResp", 0, 1, fields);
};

struct EraseResp final : MessageOf<EraseResp> {
    static constexpr Schema layout = alternative("EraseResp", 1);
};

struct UpdateResp final : MessageOf<UpdateResp> {
    std::string text0;

    static constexpr Field fields[] = {
        text<&UpdateResp::text0>(52),
    };
    static constexpr Schema layout = alternative("UpdateResp", 2, 0, fields);
};

struct CreateResp final : MessageOf<CreateResp> {
    std::string text0;
    std::string text1;

    static constexpr Field fields[] = {
        text<&CreateResp::text0>(32),
        text<&CreateResp::text1>(52),
    };
    static constexpr Schema layout = alternative("CreateResp", 3, 1, fields);
};

struct ForgetResp final : MessageOf<ForgetResp> {
    static constexpr Schema layout = alternative("ForgetResp", 5);
};

struct GetDataResp final : MessageOf<GetDataResp> {
    std::int32_t number0 = 0;
    ListOfDataInterval::list_t list1;

    static constexpr Field fields[] = {
        number<&GetDataResp::number0>(0, 17),
        list<&GetDataResp::list1, ListOfDataInterval>(),
    };
    static constexpr Schema layout = alternative("GetDataResp", 6, 2, fields);
};

struct PutDataResp final : MessageOf<PutDataResp> {
    static constexpr Schema layout = alternative("PutDataResp", 7);
};

struct ErrorResp final : MessageOf<ErrorResp> {
    std::int32_t number0 = 0;
    ListOfString1024::list_t list1;

    static constexpr Field fields[] = {
        number<&ErrorResp::number0>(),
        list<&ErrorResp::list1, ListOfString1024>(),
    };
    static constexpr Schema layout = alternative("ErrorResp", 8, 2, fields);
};

struct GetLastDataResp final : MessageOf<GetLastDataResp> {
    std::int32_t number0 = 0;
    Held<DataInterval> data;

    static constexpr Field fields[] = {
        number<&GetLastDataResp::number0>(0, 17),
        nested<&GetLastDataResp::data, DataInterval>("data"),
    };
    static constexpr Schema layout = alternative("GetLastDataResp", 9, 2, fields);
};

struct CallResp final : MessageOf<CallResp> {
    ListOfProperty::list_t list0;
    ListOfObject::list_t list1;

    static constexpr Field fields[] = {
        list<&CallResp::list0, ListOfProperty>(),
        list<&CallResp::list1, ListOfObject>(),
    };
    static constexpr Schema layout = alternative("CallResp", 10, 2, fields);
};

struct ClientWants final : MessageOf<ClientWants> {
    std::int32_t number0 = 0;
    Held<BerValue> authentication;

    static constexpr Field fields[] = {
        number<&ClientWants::number0>(0, 65535),
        unionOf<&ClientWants::authentication, ClientNoAuth, ClientPrivateKey, ClientPassword,
                WantsLinkHandshake>("authentication"),
    };
    static constexpr Schema layout = topLevel("ClientWants", 0, 2, fields);
};

struct ServerOffers final : MessageOf<ServerOffers> {
    std::int32_t number0 = 0;
    Held<BerValue> authentication;

    static constexpr Field fields[] = {
        number<&ServerOffers::number0>(0, 65535),
        unionOf<&ServerOffers::authentication, ServerNoAuth, ServerPrivateKey, ServerPassword,
                LinkHandshakeInit>("authentication"),
    };
    static constexpr Schema layout = topLevel("ServerOffers", 1, 2, fields);
};

struct NegotiateAck final : MessageOf<NegotiateAck> {
    static constexpr Schema layout = topLevel("NegotiateAck", 2);
};

struct NegotiateNack final : MessageOf<NegotiateNack> {
    std::string text0;

    static constexpr Field fields[] = {
        text<&NegotiateNack::text0>(1024),
    };
    static constexpr Schema layout = topLevel("NegotiateNack", 3, 1, fields);
};

struct DiffieHellmannParameters final : MessageOf<DiffieHellmannParameters> {
    BigNum bignum0;
    BigNum bignum1;

    static constexpr Field fields[] = {
        bignum<&DiffieHellmannParameters::bignum0>(),
        bignum<&DiffieHellmannParameters::bignum1>(),
    };
    static constexpr Schema layout = topLevel("DiffieHellmannParameters", 4, 1, fields);
};

struct SporadicBignum final : MessageOf<SporadicBignum> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&SporadicBignum::bignum0>(),
    };
    static constexpr Schema layout = topLevel("SporadicBignum", 5, 1, fields);
};

struct AuthChallenge final : MessageOf<AuthChallenge> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&AuthChallenge::bignum0>(),
    };
    static constexpr Schema layout = topLevel("AuthChallenge", 6, 1, fields);
};

struct AuthResponse final : MessageOf<AuthResponse> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&AuthResponse::bignum0>(),
    };
    static constexpr Schema layout = topLevel("AuthResponse", 7, 1, fields);
};

struct ConfigureReq final : MessageOf<ConfigureReq> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;
    std::int32_t number2 = 0;
    std::int32_t number3 = 0;
    std::int32_t number4 = 0;
    ListOfHostInfoLine::list_t list5;
    ListOfCheckGroup::list_t list6;
    ListOfCheckDescription::list_t list7;

    static constexpr Field fields[] = {
        number<&ConfigureReq::number0>(),
        number<&ConfigureReq::number1>(),
        number<&ConfigureReq::number2>(),
        number<&ConfigureReq::number3>(),
        number<&ConfigureReq::number4>(),
        list<&ConfigureReq::list5, ListOfHostInfoLine>(),
        list<&ConfigureReq::list6, ListOfCheckGroup>(),
        list<&ConfigureReq::list7, ListOfCheckDescription>(),
    };
    static constexpr Schema layout = topLevel("ConfigureReq", 8, 5, fields);
};

struct ConfigureResp final : MessageOf<ConfigureResp> {
    std::string text0;
    std::int32_t number1 = 0;
    ListOfServerNamePort::list_t list2;
    ListOfCheckConfGroup::list_t list3;

    static constexpr Field fields[] = {
        text<&ConfigureResp::text0>(128),
        number<&ConfigureResp::number1>(-1, 86400),
        list<&ConfigureResp::list2, ListOfServerNamePort>(),
        list<&ConfigureResp::list3, ListOfCheckConfGroup>(),
    };
    static constexpr Schema layout = topLevel("ConfigureResp", 9, 4, fields);
};

struct CheckinReq final : MessageOf<CheckinReq> {
    ListOfCheckResult::list_t list0;

    static constexpr Field fields[] = {
        list<&CheckinReq::list0, ListOfCheckResult>(),
    };
    static constexpr Schema layout = topLevel("CheckinReq", 10, 1, fields);
};

struct CheckinResp final : MessageOf<CheckinResp> {
    bool flag0 = false;
    bool flag1 = false;
    bool flag2 = false;
    ListOfActionConfGroup::list_t list3;
    bool flag4 = false;

    static constexpr Field fields[] = {
        boolean<&CheckinResp::flag0>(), boolean<&CheckinResp::flag1>(),
        boolean<&CheckinResp::flag2>(), list<&CheckinResp::list3, ListOfActionConfGroup>(),
        boolean<&CheckinResp::flag4>(),
    };
    static constexpr Schema layout = topLevel("CheckinResp", 11, 5, fields);
};

struct UpgradeReq final : MessageOf<UpgradeReq> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;
    std::int32_t number2 = 0;
    std::int32_t number3 = 0;
    std::int32_t number4 = 0;

    static constexpr Field fields[] = {
        number<&UpgradeReq::number0>(), number<&UpgradeReq::number1>(),
        number<&UpgradeReq::number2>(), number<&UpgradeReq::number3>(),
        number<&UpgradeReq::number4>(),
    };
    static constexpr Schema layout = topLevel("UpgradeReq", 12, 3, fields);
};

struct UpgradeResp final : MessageOf<UpgradeResp> {
    std::int32_t number0 = 0;
    std::string text1;

    static constexpr Field fields[] = {
        number<&UpgradeResp::number0>(),
        text<&UpgradeResp::text1>(1048576),
    };
    static constexpr Schema layout = topLevel("UpgradeResp", 13, 2, fields);
};

struct NewSession final : MessageOf<NewSession> {
    std::string text0;
    std::string text1;
    std::string text2;
    std::string text3;

    static constexpr Field fields[] = {
        text<&NewSession::text0>(1024),
        text<&NewSession::text1>(128),
        text<&NewSession::text2>(256),
        text<&NewSession::text3>(128),
    };
    static constexpr Schema layout = topLevel("NewSession", 16, 4, fields);
};

struct NewSessionResp final : MessageOf<NewSessionResp> {
    BigNum bignum0;
    std::int32_t number1 = 0;
    std::string text2;
    std::string text3;
    std::string text4;

    static constexpr Field fields[] = {
        bignum<&NewSessionResp::bignum0>(), number<&NewSessionResp::number1>(),
        text<&NewSessionResp::text2>(32),   text<&NewSessionResp::text3>(32),
        text<&NewSessionResp::text4>(32),
    };
    static constexpr Schema layout = topLevel("NewSessionResp", 17, 5, fields);
};

struct ReopenSession final : MessageOf<ReopenSession> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&ReopenSession::bignum0>(),
    };
    static constexpr Schema layout = topLevel("ReopenSession", 18, 1, fields);
};

struct EndSession final : MessageOf<EndSession> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&EndSession::bignum0>(),
    };
    static constexpr Schema layout = topLevel("EndSession", 19, 1, fields);
};

struct Request final : MessageOf<Request> {
    std::int32_t number0 = 0;
    Held<BerValue> req;

    static constexpr Field fields[] = {
        number<&Request::number0>(0, 2147483647),
        unionOf<&Request::req, SelectReq, EraseReq, UpdateReq, CreateReq, ForgetReq, GetDataReq,
                PutDataReq, GetLastDataReq, CallReq>("req"),
    };
    static constexpr Schema layout = topLevel("Request", 20, 2, fields);
};

struct Response final : MessageOf<Response> {
    std::int32_t number0 = 0;
    Held<BerValue> resp;

    static constexpr Field fields[] = {
        number<&Response::number0>(0, 2147483647),
        unionOf<&Response::resp, SelectResp, EraseResp, UpdateResp, CreateResp, ForgetResp,
                GetDataResp, PutDataResp, ErrorResp, GetLastDataResp, CallResp>("resp"),
    };
    static constexpr Schema layout = topLevel("Response", 21, 2, fields);
};

struct GridPropertyList final : MessageOf<GridPropertyList> {
    ListOfProperty::list_t list0;

    static constexpr Field fields[] = {
        list<&GridPropertyList::list0, ListOfProperty>(),
    };
    static constexpr Schema layout = topLevel("GridPropertyList", 22, 1, fields);
};

struct ServerTimeReq final : MessageOf<ServerTimeReq> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;

    static constexpr Field fields[] = {
        number<&ServerTimeReq::number0>(),
        number<&ServerTimeReq::number1>(0, 999999),
    };
    static constexpr Schema layout = topLevel("ServerTimeReq", 23, 2, fields);
};

struct ServerTimeResp final : MessageOf<ServerTimeResp> {
    std::int32_t number0 = 0;
    std::int32_t number1 = 0;

    static constexpr Field fields[] = {
        number<&ServerTimeResp::number0>(),
        number<&ServerTimeResp::number1>(0, 999999),
    };
    static constexpr Schema layout = topLevel("ServerTimeResp", 24, 2, fields);
};

struct GridDataIntervalList final : MessageOf<GridDataIntervalList> {
    ListOfDataInterval::list_t list0;

    static constexpr Field fields[] = {
        list<&GridDataIntervalList::list0, ListOfDataInterval>(),
    };
    static constexpr Schema layout = topLevel("GridDataIntervalList", 25, 1, fields);
};

struct GSLNonce final : MessageOf<GSLNonce> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&GSLNonce::bignum0>(),
    };
    static constexpr Schema layout = topLevel("GSLNonce", 26, 1, fields);
};

struct GSLSignedNonce final : MessageOf<GSLSignedNonce> {
    BigNum bignum0;

    static constexpr Field fields[] = {
        bignum<&GSLSignedNonce::bignum0>(),
    };
    static constexpr Schema layout = topLevel("GSLSignedNonce", 27, 1, fields);
};

struct GridMessage final : MessageOf<GridMessage> {
    std::int32_t number0 = 0;
    std::uint32_t number1 = 0;
    std::uint32_t number2 = 0;
    bool flag3 = false;
    std::string text4;

    static constexpr Field fields[] = {
        number<&GridMessage::number0>(0, 65535), number<&GridMessage::number1>(),
        number<&GridMessage::number2>(),         boolean<&GridMessage::flag3>(),
        text<&GridMessage::text4>(65536),
    };
    static constexpr Schema layout = topLevel("GridMessage", 28, 5, fields);
};

struct GSLKeepAlive final : MessageOf<GSLKeepAlive> {
    std::int32_t number0 = 0;

    static constexpr Field fields[] = {
        number<&GSLKeepAlive::number0>(),
    };
    static constexpr Schema layout = topLevel("GSLKeepAlive", 29, 1, fields);
};

struct DowntimeReq final : MessageOf<DowntimeReq> {
    std::int32_t number0 = 0;

    static constexpr Field fields[] = {
        number<&DowntimeReq::number0>(),
    };
    static constexpr Schema layout = topLevel("DowntimeReq", 30, 1, fields);
};

struct DowntimeResp final : MessageOf<DowntimeResp> {
    bool flag0 = false;
    std::string text1;

    static constexpr Field fields[] = {
        boolean<&DowntimeResp::flag0>(),
        text<&DowntimeResp::text1>(1024),
    };
    static constexpr Schema layout = topLevel("DowntimeResp", 31, 2, fields);
};

struct HWScanReq final : MessageOf<HWScanReq> {
    static constexpr Schema layout = topLevel("HWScanReq", 32);
};

struct HWScanResp final : MessageOf<HWScanResp> {
    bool flag0 = false;

    static constexpr Field fields[] = {
        boolean<&HWScanResp::flag0>(),
    };
    static constexpr Schema layout = topLevel("HWScanResp", 33, 1, fields);
};

// The top-level messages.
const BerProtocol& guiProtocol();
// Their classes, by their application numbers.
std::span<const Alternative> topLevelMessages();

}  // namespace protocol
