#include "dump/BerDump.h"

#include "common/text.h"
#include "protocol/Messages.h"

#include <cstddef>

namespace dump {

namespace {

// The bytes of a bad message up to the one that shows that it is bad, so that what is shown doesn't
// depend on how much has come behind. None before the last of the first `good` shows it.
std::string_view judged(std::string_view bytes, std::size_t good, bool legacy)
{
    const BerWalk walk(protocol::guiProtocol());
    protocol::BerReader reader(walk, legacy);
    std::string_view rest = bytes.substr(0, good);
    std::size_t count = good;
    try {
        reader.read(&rest);
        while (count < bytes.size()) {
            rest = bytes.substr(count++, 1);
            reader.read(&rest);
        }
    } catch (const protocol::EBer&) {
        // That it is bad is known.
    }
    return bytes.substr(0, count);
}

}  // namespace

BerDump::BerDump(BerView& shown, bool legacy)
    : view(shown), oldNumbering(legacy), walk(protocol::guiProtocol()), reader(walk, legacy)
{}

void BerDump::append(std::string_view bytes)
{
    while (understood && !bytes.empty()) {
        const std::string_view before = bytes;
        try {
            const bool isWhole = reader.read(&bytes) != nullptr;
            message += before.substr(0, before.size() - bytes.size());
            if (isWhole) {
                view.message(offset, message);
                offset += message.size();
                message.clear();
            }
        } catch (const protocol::EBer& e) {
            message += before;
            const std::uint64_t bad = reader.offset();
            understood = false;
            view.bad({.offset = offset,
                      .bytes = judged(message, bad - offset, oldNumbering),
                      .badOffset = bad,
                      .place = walk.place(),
                      .why = e.text()});
        }
    }
}

void BerDump::finish()
{
    if (!understood || !reader.inMessage())
        return;
    understood = false;
    view.bad({.offset = offset,
              .bytes = message,
              .badOffset = reader.offset(),
              .place = walk.place(),
              .why = "only " + sizeToString(message.size()) +
                     (message.size() == 1 ? " byte" : " bytes") + " of it have come",
              .cut = true});
}

}  // namespace dump
