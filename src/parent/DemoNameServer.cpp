#include "parent/DemoNameServer.h"

#include "common/text.h"

#include <algorithm>
#include <cstddef>

namespace parent {

namespace {

constexpr std::size_t datagramSize = 512;
constexpr std::size_t headerSize = 12;
constexpr std::uint16_t typeAddress = 1;
constexpr std::uint16_t typeAlias = 5;
constexpr std::uint16_t classInternet = 1;
constexpr std::uint32_t timeToLive = 300;  // seconds

constexpr std::uint32_t flagReply = 0x8000;       // QR
constexpr std::uint32_t flagsRecursion = 0x0180;  // RD and RA
constexpr std::uint32_t codeNoSuchName = 3;       // RCODE

std::string bytes16(std::uint32_t value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::uint32_t number16(std::string_view bytes)
{
    return static_cast<unsigned char>(bytes[0]) * 256U + static_cast<unsigned char>(bytes[1]);
}

std::string encodedName(std::string_view name)
{
    std::string bytes;
    for (const std::string& label : split(name, '.', false))
        bytes += static_cast<char>(label.size()) + label;
    return bytes + '\0';
}

// Takes an encoded name off the front of `bytes`. False if there is none, or a compressed one,
// which no question needs.
bool takeName(std::string_view* bytes, std::string* name)
{
    while (!bytes->empty()) {
        const auto size = static_cast<unsigned char>(bytes->front());
        bytes->remove_prefix(1);
        if (size == 0)
            return true;
        if (size > 63 || size > bytes->size())
            return false;
        if (!name->empty())
            *name += '.';
        *name += bytes->substr(0, size);
        bytes->remove_prefix(size);
    }
    return false;
}

std::string record(std::string_view owner, std::uint16_t type, const std::string& data)
{
    return encodedName(owner) + bytes16(type) + bytes16(classInternet) + bytes16(timeToLive >> 16) +
           bytes16(timeToLive) + bytes16(static_cast<std::uint32_t>(data.size())) + data;
}

}  // namespace

DemoNameServer::DemoNameServer(MainSelector& mainSelector, std::span<const DemoName> table)
    : UDPSocket(datagramSize), selector(mainSelector), names(table)
{
    if (platform::bind(socket, loopback()) != 0)
        fail("take a port");
    selector.add(&receiver, this);
}

// Nothing is received as long as a reply is under way: two in the sender would leave as one.
void DemoNameServer::ready(io::Selectable* s)
{
    if (s == &sender) {
        selector.remove(&sender);
        selector.add(&receiver, this);
        return;
    }
    char* query = nullptr;
    const std::uint64_t size = receiver.readBegin(&query);
    const std::string answer = reply({query, static_cast<std::size_t>(size)});
    receiver.readCommit(size);
    char* space = nullptr;
    if (answer.empty() || answer.size() > sender.writeBegin(&space))
        return;
    std::copy_n(answer.data(), answer.size(), space);
    sender.setDestination(receiver.source().address, receiver.source().port);
    sender.writeCommit(answer.size());
    selector.remove(&receiver);
    selector.add(&sender, this);
}

// Empty if the query is none that has an answer.
std::string DemoNameServer::reply(std::string_view query) const
{
    // ID, flags, and the number of entries in each of four sections.
    if (query.size() < headerSize || (number16(query.substr(2)) & flagReply) != 0 ||
        number16(query.substr(4)) != 1)
        return "";
    std::string_view rest = query.substr(headerSize);
    std::string asked;
    if (!takeName(&rest, &asked) || rest.size() < 4 || number16(rest) != typeAddress ||
        number16(rest.substr(2)) != classInternet)
        return "";
    const std::string question = encodedName(asked) + std::string(rest.substr(0, 4));

    std::string records;
    std::uint32_t count = 0;
    const DemoName* found = find(asked);
    const std::uint32_t flags =
        flagReply | flagsRecursion | (found == nullptr ? codeNoSuchName : 0);
    // Aliases in a ring would have no end.
    while (found != nullptr && count < names.size()) {
        ++count;
        if (found->alias == nullptr) {
            records += record(found->name, typeAddress,
                              std::string(found->address.begin(), found->address.end()));
            break;
        }
        records += record(found->name, typeAlias, encodedName(found->alias));
        found = find(found->alias);
    }
    return std::string(query.substr(0, 2)) + bytes16(flags) + bytes16(1) + bytes16(count) +
           bytes16(0) + bytes16(0) + question + records;
}

const DemoName* DemoNameServer::find(std::string_view name) const
{
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&](const DemoName& one) { return name == one.name; });
    return found == names.end() ? nullptr : &*found;
}

}  // namespace parent
