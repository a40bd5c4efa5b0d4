#include "BerMessages.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace bench {

namespace {

using namespace protocol;

constexpr std::size_t objects = 1000;
constexpr std::size_t propertiesEach = 10;
constexpr std::size_t results = 10;

constexpr std::int64_t noon = 1764504000000;  // a day in 2025, in milliseconds

std::string numbered(const std::string& text, std::size_t number)
{
    return text + std::to_string(number);
}

// Bytes without a pattern, as images and keys have.
std::string noise(std::size_t count, std::size_t seed)
{
    std::string bytes;
    auto state = static_cast<std::uint32_t>(seed);
    while (bytes.size() < count) {
        state = state * 1103515245 + 12345;
        bytes += static_cast<char>(state >> 16);
    }
    return bytes;
}

// Exact in seven decimal digits, which is what a real number keeps on the wire.
double measured(std::size_t n)
{
    return static_cast<double>(n % 4000) / 8;
}

BigNum key(std::size_t n)
{
    const std::string bytes = noise(16, n);
    BigNum number;
    number.bn_set_data(bytes.data(), bytes.size());
    return number;
}

template <class T, class Value>
Held<BerValue> dataOf(Value T::*member, Value value)
{
    auto data = std::make_unique<T>();
    (*data).*member = std::move(value);
    return Held<BerValue>(std::move(data));
}

// Data of the kind with this number, and after the last kind of the first again.
Held<BerValue> dataOfKind(std::size_t n)
{
    const auto number = static_cast<std::uint32_t>(n);
    switch (n % 13) {
    case 0:
        return dataOf(&StringProp::text0, numbered("server room on floor ", n));
    case 1:
        return dataOf(&StringListProp::list0,
                      {numbered("administrators-", n), "operators", "pager"});
    case 2:
        return dataOf(&SignedIntProp::number0, -static_cast<std::int32_t>(number));
    case 3:
        return dataOf(&UnsignedIntProp::number0, number * 1000);
    case 4:
        return dataOf(&RealProp::real0, measured(n));
    case 5:
        return dataOf(&BooleanProp::flag0, n % 2 == 0);
    case 6:
        return Held<BerValue>(std::make_unique<NullProp>());
    case 7:
        return dataOf(&BlobProp::text0, noise(48, n));
    case 8:
        return dataOf(&UnsignedIntListProp::list0, {80, 443, number});
    case 9:
        return dataOf(&SignedInt64Prop::number0, noon + static_cast<std::int64_t>(n));
    case 10:
        return dataOf(&UnsignedInt64Prop::number0, std::uint64_t{n} << 30U);
    case 11:
        return dataOf(&BigNumProp::bignum0, key(n));
    default:
        return dataOf(&LobProp::text0, noise(200, n));
    }
}

Object object(std::size_t n)
{
    Object result;
    result.text0 = numbered("1.4.17.", n);
    result.number1 = static_cast<std::uint32_t>(n % 40);
    result.text2 = "1.9.2";
    result.text3 = numbered("1764504000.", n);
    for (std::size_t i = n * propertiesEach; i < (n + 1) * propertiesEach; ++i) {
        Property property;
        property.text0 = numbered("host.property.", i % 100);
        property.number1 = 2;
        property.data = dataOfKind(i);
        result.list4.push_back(std::move(property));
    }
    result.set6 = {3, 17};
    return result;
}

Held<BerValue> variantOfKind(std::size_t n)
{
    switch (n % 4) {
    case 0:
        return Held<BerValue>(std::make_unique<BerReal>(measured(n)));
    case 1:
        return Held<BerValue>(
            std::make_unique<BerIntegerTemplate<std::int32_t>>(static_cast<std::int32_t>(n * 99)));
    case 2:
        return Held<BerValue>(std::make_unique<BerString>("listening on port 8080", 65536));
    default:
        return Held<BerValue>(std::make_unique<BerNull>());
    }
}

}  // namespace

Response selectResponse()
{
    auto found = std::make_unique<SelectResp>();
    for (std::size_t i = 0; i < objects; ++i)
        found->list0.push_back(object(i));
    Response response;
    response.number0 = 4711;
    response.resp.reset(std::move(found));
    return response;
}

CheckinReq checkinRequest()
{
    CheckinReq request;
    for (std::size_t i = 0; i < results; ++i) {
        CheckResult result;
        result.number0 = static_cast<std::int32_t>(i) + 1;
        result.text1 = numbered("check of the service ", i);
        result.checkStatus2 = static_cast<std::int32_t>(i % 3);
        result.list3 = {"disk", numbered("/dev/sda", i)};
        result.value = variantOfKind(i);
        result.text5 = "2025-11-30 12:00:00";
        request.list0.push_back(std::move(result));
    }
    return request;
}

}  // namespace bench
