#include "checks/DNSNetCheck.h"

#include "checks/dns.h"
#include "common/assertion.h"
#include "common/text.h"
#include "types/vocabulary.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <utility>

namespace {

constexpr const char* defaultHost = "www.example.com";
constexpr std::size_t bufferSize = 1536;

// The header of a message: six 16-bit numbers, big-endian.
//
//    0   ID
//    2   flags: QR 0x8000, RD 0x0100, RCODE 0x000F
//    4   number of questions
//    6   number of answer records
//    8   number of authority records
//   10   number of additional records
constexpr std::size_t headerSize = 12;
constexpr unsigned queryId = 117;
constexpr unsigned responseFlag = 0x8000;
constexpr unsigned errorMask = 0x000F;
constexpr std::array<unsigned char, headerSize> queryHeader = {0, queryId, 1, 0, 0, 1};

constexpr std::uint16_t typeA = 1;
constexpr std::uint16_t typeCname = 5;
constexpr std::uint16_t classIn = 1;

unsigned headerNumber(std::string_view datagram, std::size_t offset)
{
    return static_cast<unsigned>(static_cast<unsigned char>(datagram[offset])) << 8 |
           static_cast<unsigned char>(datagram[offset + 1]);
}

DnsJudgement badReply(std::string line)
{
    return {DnsJudgement::Kind::badReply, std::move(line)};
}

// Any length is taken: what the record holds is shown.
std::string addressText(std::string_view address)
{
    std::string text;
    for (const char byte : address) {
        if (!text.empty())
            text += '.';
        text += uintToString(static_cast<unsigned char>(byte));
    }
    return text;
}

// Follows the records of a reply to the address of the name, and gives its bytes; empty if there
// is none. A CNAME counts for the records behind it, and the last address is taken. Throws
// EDnsMessage.
std::string findAddress(std::string_view datagram, const std::string& queryName)
{
    const char* const message = datagram.data();
    const char* const end = message + datagram.size();
    const char* position = message + headerSize;
    for (unsigned left = headerNumber(datagram, 4); left > 0; --left)
        position = dnsSkipQuestion(message, position, end);

    std::string wanted = queryName;
    if (!wanted.empty() && !wanted.ends_with('.'))
        wanted += '.';
    std::string answer;
    DnsRecord record;
    for (unsigned left = headerNumber(datagram, 6); left > 0; --left) {
        position = dnsDecodeRecord(record, message, position, end);
        if (record.rclass != classIn || record.name != wanted)
            continue;
        if (record.type == typeA)
            answer = record.data;
        else if (record.type == typeCname)
            wanted = record.data;
    }

    // The rest is of no use, but a datagram that doesn't hold it is broken.
    for (unsigned left = headerNumber(datagram, 8) + headerNumber(datagram, 10); left > 0; --left)
        position = dnsDecodeRecord(record, message, position, end);
    return answer;
}

// Writes the query into the space before `end`, at least the header long, and gives the position
// behind it. Throws EDnsMessage.
char* encodeQuery(char* space, const char* end, const std::string& name)
{
    char* const position = std::copy(queryHeader.begin(), queryHeader.end(), space);
    return dnsEncodeQuestion(position, end, name, typeA, classIn);
}

}  // namespace

DnsJudgement judgeDnsReply(std::string_view datagram, const std::string& queryName,
                           const std::string& expected)
{
    if (datagram.size() < headerSize)
        return badReply("Bad reply from dns server (length)");
    if (headerNumber(datagram, 0) != queryId)
        return {DnsJudgement::Kind::otherId, "Will wait for next reply"};
    const unsigned flags = headerNumber(datagram, 2);
    if ((flags & responseFlag) == 0 || (flags & errorMask) != 0)
        return badReply("Bad reply from dns server (flags)");

    std::string answer;
    try {
        answer = findAddress(datagram, queryName);
    } catch (const EDnsMessage& e) {
        return badReply(e.text());
    }
    if (answer.empty())
        return badReply("Bad reply from dns server");
    if (!expected.empty()) {
        const std::list<std::string> good = split(expected, ", ;:", false);
        if (std::find(good.begin(), good.end(), addressText(answer)) == good.end())
            return badReply("Bad reply from dns server (tokens)");
    }
    return {};
}

DNSNetCheck::DNSNetCheck(io::Selector<Handler*>* mainSelector, ParentHandler* owner,
                         const remcheck::remcheck_conf& request)
    : NetCheck(mainSelector, owner, request)
{
    // A result can't be sent from here, and without one the whole process would stop.
    try {
        socket.emplace(bufferSize);
    } catch (const error::Exception& e) {
        socketFailure = e.text();
    }
}

void DNSNetCheck::start()
{
    queryName = defaultHost;
    readProperty(tql::property::dnsHost, queryName);
    readProperty(tql::property::dnsIp, expected);
    if (!socket) {
        log("Failed to create UDP socket: " + socketFailure, logOrdinary);
        finishWith(services::RESULT_CONNECT_FAILED);
        return;
    }
    selector->add(&socket->sender, this);
    if (traceWanted())
        log("Will wait for output to become ready", logTrace);
}

void DNSNetCheck::ioReady(io::Selectable* s)
{
    if (s == &socket->sender)
        requestSent ? sent() : send();
    else if (s == &socket->receiver)
        receive();
}

void DNSNetCheck::send()
{
    if (traceWanted())
        log("Sending DNS request", logTrace);
    selector->remove(&socket->sender);
    socket->sender.setDestination(conf.addr, static_cast<std::uint16_t>(conf.port));

    std::string failure;
    std::uint64_t length = 0;
    try {
        char* space = nullptr;
        const std::uint64_t room = socket->sender.writeBegin(&space);
        if (room < headerSize)
            assertion("buf_size too small");
        length = static_cast<std::uint64_t>(encodeQuery(space, space + room, queryName) - space);
    } catch (const EDnsMessage& e) {
        failure = e.text();
    } catch (const error::Exception& e) {
        failure = "writeBegin fails: " + e.text();
    }
    if (!failure.empty()) {
        log(failure, logOrdinary);
        finishWith(services::RESULT_CONNECT_FAILED);
        return;
    }

    stopWatch.restart();
    socket->sender.writeCommit(length);
    requestSent = true;
    selector->add(&socket->sender, this);
}

void DNSNetCheck::sent()
{
    if (traceWanted())
        log("DNS: request sent, will wait for reply", logTrace);
    selector->remove(&socket->sender);
    requestSent = false;
    selector->add(&socket->receiver, this);
}

void DNSNetCheck::receive()
{
    if (traceWanted())
        log("Reading DNS server reply", logTrace);
    selector->remove(&socket->receiver);

    std::string failure;
    char* data = nullptr;
    std::uint64_t count = 0;
    try {
        count = socket->receiver.readBegin(&data);
    } catch (const error::Exception& e) {
        failure = "readBegin fails: " + e.text();
    }
    if (!failure.empty()) {
        log(failure, logOrdinary);
        finishWith(services::RESULT_CONNECT_FAILED);
        return;
    }

    const DnsJudgement judgement = judgeDnsReply({data, count}, queryName, expected);
    switch (judgement.kind) {
    case DnsJudgement::Kind::otherId:
        if (traceWanted())
            log(judgement.line, logTrace);
        socket->receiver.readCommit(count);
        selector->add(&socket->receiver, this);
        return;
    case DnsJudgement::Kind::badReply:
        log(judgement.line, logOrdinary);
        socket->receiver.readCommit(count);
        finishWith(services::RESULT_BAD_REPLY);
        return;
    case DnsJudgement::Kind::answer:
        socket->receiver.readCommit(count);
        finish();
        return;
    }
}
