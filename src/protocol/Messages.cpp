#include "protocol/Messages.h"

#include "common/text.h"

namespace protocol {

namespace {

class GuiProtocol final : public BerProtocol {
public:
    std::unique_ptr<BerValue> create(BerTag tag, bool /*legacy*/) const override
    {
        for (const Alternative& message : topLevelMessages()) {
            if (tag == applicationTag(message.number))
                return message.make();
        }
        throw EBer("Unknown tag " + uintToString(tag));
    }
};

}  // namespace

template <class Self>
std::unique_ptr<BerValue> MessageOf<Self>::clone() const
{
    return std::make_unique<Self>(static_cast<const Self&>(*this));
}

template <class Self>
const Schema& MessageOf<Self>::schema() const
{
    return Self::layout;
}

// The table is a constant here, so each class gets direct calls for its fields.
template <class Self, std::size_t... I>
char* putFields(Message& message, BerOutput& output, char* to, bool legacy,
                std::index_sequence<I...> /*of the fields*/)
{
    ((to = Self::fields[I].kind->put(Self::fields[I], Self::fields[I].member(message), output, to,
                                     legacy)),
     ...);
    return to;
}

template <class Self>
char* MessageOf<Self>::put(BerOutput& output, char* to, bool legacy) const
{
    constexpr BerTag current = Self::layout.tag(false);
    constexpr BerTag old = Self::layout.tag(true);
    constexpr std::size_t count = Self::layout.fieldCount;
    to = putBeginning(output.reserve(to), legacy ? old : current);
    // The table serves readers too. Through it, a message that is const is only read.
    if constexpr (count > 0)
        to = putFields<Self>(const_cast<MessageOf&>(*this), output, to, legacy,
                             std::make_index_sequence<count>());
    return putEndOfContents(output.reserve(to));
}

template <class Self>
BerChild MessageOf<Self>::child(std::size_t index, BerTag tag, bool legacy)
{
    if constexpr (Self::layout.fieldCount > 0) {
        if (index < Self::layout.fieldCount) {
            const Field& field = Self::fields[index];
            return field.kind->child(field, field.member(*this), tag, legacy, Self::layout.name);
        }
    }
    return makeSkipper(tag);
}

template <class Self>
bool MessageOf<Self>::readChild(std::size_t index, BerTag tag, bool legacy,
                                std::string_view content)
{
    if constexpr (Self::layout.fieldCount > 0) {
        return [&]<std::size_t... I>(std::index_sequence<I...>)
        {
            return ((index == I &&
                     Self::fields[I].kind->read(Self::fields[I], Self::fields[I].member(*this), tag,
                                                legacy, content)) ||
                    ...);
        }
        (std::make_index_sequence<Self::layout.fieldCount>());
    }
    return false;
}

template <class Self>
std::size_t MessageOf<Self>::requiredChildren() const
{
    return Self::layout.required;
}

template class MessageOf<ClientNoAuth>;
template class MessageOf<ClientPrivateKey>;
template class MessageOf<ClientPassword>;
template class MessageOf<WantsLinkHandshake>;
template class MessageOf<ServerNoAuth>;
template class MessageOf<ServerPrivateKey>;
template class MessageOf<ServerPassword>;
template class MessageOf<LinkHandshakeInit>;
template class MessageOf<HostInfoLine>;
template class MessageOf<Check>;
template class MessageOf<CheckGroup>;
template class MessageOf<CheckDescription>;
template class MessageOf<ServerNamePort>;
template class MessageOf<ContinuousConf>;
template class MessageOf<EnumConf>;
template class MessageOf<LogConf>;
template class MessageOf<RealContinuousConf>;
template class MessageOf<Rule>;
template class MessageOf<AdvLogConf>;
template class MessageOf<CheckConf>;
template class MessageOf<CheckConfGroup>;
template class MessageOf<CheckResult>;
template class MessageOf<ActionConf>;
template class MessageOf<ActionConfGroup>;
template class MessageOf<StringProp>;
template class MessageOf<StringListProp>;
template class MessageOf<SignedIntProp>;
template class MessageOf<UnsignedIntProp>;
template class MessageOf<RealProp>;
template class MessageOf<BooleanProp>;
template class MessageOf<NullProp>;
template class MessageOf<BlobProp>;
template class MessageOf<UnsignedIntListProp>;
template class MessageOf<SignedInt64Prop>;
template class MessageOf<UnsignedInt64Prop>;
template class MessageOf<BigNumProp>;
template class MessageOf<LobProp>;
template class MessageOf<Property>;
template class MessageOf<RelativeExpr>;
template class MessageOf<PathPattern>;
template class MessageOf<SelectReq>;
template class MessageOf<EraseReq>;
template class MessageOf<UpdateReq>;
template class MessageOf<CreateReq>;
template class MessageOf<ForgetReq>;
template class MessageOf<GetDataReq>;
template class MessageOf<DataIntervalRawElement>;
template class MessageOf<DataIntervalRawDEPRECATED>;
template class MessageOf<DataIntervalIncident>;
template class MessageOf<DataIntervalContinuousDEPRECATED>;
template class MessageOf<DataIntervalSawtooth>;
template class MessageOf<DataIntervalEnum>;
template class MessageOf<DataIntervalContinuous>;
template class MessageOf<DataInterval>;
template class MessageOf<PutDataReq>;
template class MessageOf<GetLastDataReq>;
template class MessageOf<Object>;
template class MessageOf<CallReq>;
template class MessageOf<SelectResp>;
template class MessageOf<EraseResp>;
template class MessageOf<UpdateResp>;
template class MessageOf<CreateResp>;
template class MessageOf<ForgetResp>;
template class MessageOf<GetDataResp>;
template class MessageOf<PutDataResp>;
template class MessageOf<ErrorResp>;
template class MessageOf<GetLastDataResp>;
template class MessageOf<CallResp>;
template class MessageOf<ClientWants>;
template class MessageOf<ServerOffers>;
template class MessageOf<NegotiateAck>;
template class MessageOf<NegotiateNack>;
template class MessageOf<DiffieHellmannParameters>;
template class MessageOf<SporadicBignum>;
template class MessageOf<AuthChallenge>;
template class MessageOf<AuthResponse>;
template class MessageOf<ConfigureReq>;
template class MessageOf<ConfigureResp>;
template class MessageOf<CheckinReq>;
template class MessageOf<CheckinResp>;
template class MessageOf<UpgradeReq>;
template class MessageOf<UpgradeResp>;
template class MessageOf<NewSession>;
template class MessageOf<NewSessionResp>;
template class MessageOf<ReopenSession>;
template class MessageOf<EndSession>;
template class MessageOf<Request>;
template class MessageOf<Response>;
template class MessageOf<GridPropertyList>;
template class MessageOf<ServerTimeReq>;
template class MessageOf<ServerTimeResp>;
template class MessageOf<GridDataIntervalList>;
template class MessageOf<GSLNonce>;
template class MessageOf<GSLSignedNonce>;
template class MessageOf<GridMessage>;
template class MessageOf<GSLKeepAlive>;
template class MessageOf<DowntimeReq>;
template class MessageOf<DowntimeResp>;
template class MessageOf<HWScanReq>;
template class MessageOf<HWScanResp>;

const BerProtocol& guiProtocol()
{
    static const GuiProtocol factory;
    return factory;
}

std::span<const Alternative> topLevelMessages()
{
    return alternativesOf<ClientWants, ServerOffers, NegotiateAck, NegotiateNack,
                          DiffieHellmannParameters, SporadicBignum, AuthChallenge, AuthResponse,
                          ConfigureReq, ConfigureResp, CheckinReq, CheckinResp, UpgradeReq,
                          UpgradeResp, NewSession, NewSessionResp, ReopenSession, EndSession,
                          Request, Response, GridPropertyList, ServerTimeReq, ServerTimeResp,
                          GridDataIntervalList, GSLNonce, GSLSignedNonce, GridMessage, GSLKeepAlive,
                          DowntimeReq, DowntimeResp, HWScanReq, HWScanResp>;
}

}  // namespace protocol
