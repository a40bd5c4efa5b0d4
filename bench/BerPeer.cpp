#include "BerPeer.h"

#include "BerPieces.h"

#include <stdexcept>
#include <string>

#include "ber.pb.h"
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/message_differencer.h>

namespace bench {

namespace {

using google::protobuf::Message;

void require(bool condition, const std::string& complaint)
{
    if (!condition)
        throw std::runtime_error("Protocol Buffers: " + complaint);
}

template <class T>
const T& valueOf(const protocol::BerValue& wrapper)
{
    return dynamic_cast<const protocol::BerShortField<T>&>(wrapper).get();
}

void fillData(peer::Property* property, const protocol::BerValue& data)
{
    using namespace protocol;

    if (const auto* text = dynamic_cast<const StringProp*>(&data)) {
        property->set_string_prop(text->text0);
    } else if (const auto* texts = dynamic_cast<const StringListProp*>(&data)) {
        for (const std::string& each : texts->list0)
            property->mutable_string_list_prop()->add_list0(each);
    } else if (const auto* int32 = dynamic_cast<const SignedIntProp*>(&data)) {
        property->set_signed_int_prop(int32->number0);
    } else if (const auto* uint32 = dynamic_cast<const UnsignedIntProp*>(&data)) {
        property->set_unsigned_int_prop(uint32->number0);
    } else if (const auto* real = dynamic_cast<const RealProp*>(&data)) {
        property->set_real_prop(real->real0);
    } else if (const auto* boolean = dynamic_cast<const BooleanProp*>(&data)) {
        property->set_boolean_prop(boolean->flag0);
    } else if (dynamic_cast<const NullProp*>(&data) != nullptr) {
        property->mutable_null_prop();
    } else if (const auto* blob = dynamic_cast<const BlobProp*>(&data)) {
        property->set_blob_prop(blob->text0);
    } else if (const auto* numbers = dynamic_cast<const UnsignedIntListProp*>(&data)) {
        for (const std::uint32_t each : numbers->list0)
            property->mutable_unsigned_int_list_prop()->add_list0(each);
    } else if (const auto* int64 = dynamic_cast<const SignedInt64Prop*>(&data)) {
        property->set_signed_int64_prop(int64->number0);
    } else if (const auto* uint64 = dynamic_cast<const UnsignedInt64Prop*>(&data)) {
        property->set_unsigned_int64_prop(uint64->number0);
    } else if (const auto* bignum = dynamic_cast<const BigNumProp*>(&data)) {
        bignum->bignum0.toBytes(property->mutable_bignum_prop(), 0);
    } else if (const auto* lob = dynamic_cast<const LobProp*>(&data)) {
        property->set_lob_prop(lob->text0);
    } else {
        require(false, "no field for the data of a property");
    }
}

void fill(peer::Object* object, const protocol::Object& from)
{
    object->set_text0(from.text0);
    object->set_number1(from.number1);
    object->set_text2(from.text2);
    object->set_text3(from.text3);
    for (const auto& each : from.list4) {
        peer::Property* const property = object->add_list4();
        property->set_text0(each->text0);
        property->set_number1(each->number1);
        fillData(property, *each->data);
    }
    for (const auto& each : from.list5)
        fill(object->add_list5(), *each);
    for (const std::uint32_t each : from.set6)
        object->add_set6(each);
}

void fill(peer::CheckResult* result, const protocol::CheckResult& from)
{
    result->set_number0(from.number0);
    result->set_text1(from.text1);
    result->set_check_status2(from.checkStatus2);
    for (const std::string& each : from.list3)
        result->add_list3(each);
    switch (from.value->tag(false)) {
    case protocol::BE_INTEGER:
        result->set_integer_value(valueOf<std::int32_t>(*from.value));
        break;
    case protocol::BE_STRING_CURRENT:
        result->set_string_value(dynamic_cast<const protocol::BerString&>(*from.value).text());
        break;
    case protocol::BE_REAL:
        result->set_real_value(valueOf<double>(*from.value));
        break;
    default:
        result->mutable_null_value();
        break;
    }
    result->set_text5(from.text5);
}

}  // namespace

struct BerPeer::Messages {
    explicit Messages(std::unique_ptr<Message> empty)
        : given(std::move(empty)), reused(given->New())
    {}

    int size() const { return static_cast<int>(bytes.size()); }
    void readInto(Message* message) const
    {
        google::protobuf::io::ArrayInputStream pieces(bytes.data(), size(), pieceSize);
        require(message->ParseFromZeroCopyStream(&pieces), "not read");
    }

    std::unique_ptr<Message> given;
    std::unique_ptr<Message> reused;
    std::string bytes;
};

BerPeer::BerPeer(const protocol::Response& response)
{
    auto message = std::make_unique<peer::Response>();
    message->set_number0(response.number0);
    const auto& found = dynamic_cast<const protocol::SelectResp&>(*response.resp);
    for (const auto& each : found.list0)
        fill(message->mutable_select_resp()->add_list0(), *each);
    messages = std::make_unique<Messages>(std::move(message));
    check();
}

BerPeer::BerPeer(const protocol::CheckinReq& request)
{
    auto message = std::make_unique<peer::CheckinReq>();
    for (const auto& each : request.list0)
        fill(message->add_list0(), *each);
    messages = std::make_unique<Messages>(std::move(message));
    check();
}

BerPeer::~BerPeer() = default;

void BerPeer::check()
{
    messages->bytes.resize(messages->given->ByteSizeLong());
    write();
    readReused();
    require(google::protobuf::util::MessageDifferencer::Equals(*messages->given, *messages->reused),
            messages->given->GetTypeName() + " reads as something else");
}

std::size_t BerPeer::writtenSize() const
{
    return messages->bytes.size();
}

void BerPeer::write()
{
    require(messages->given->SerializeToArray(messages->bytes.data(), messages->size()),
            "not written");
}

void BerPeer::readFresh() const
{
    const std::unique_ptr<Message> fresh(messages->given->New());
    messages->readInto(fresh.get());
}

void BerPeer::readReused()
{
    messages->readInto(messages->reused.get());
}

}  // namespace bench
