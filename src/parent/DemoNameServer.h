// A name server of the demo: it answers questions for addresses (RFC 1035, 4.1) from a small table.
#pragma once

#include "io/Udp.h"
#include "parent/Attendant.h"
#include "parent/DemoService.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace parent {

// A name has an alias or an address. A name that isn't in the table doesn't exist.
struct DemoName {
    const char* name;
    const char* alias;  // another name of the table; null: none
    std::array<std::uint8_t, 4> address;
};

class DemoNameServer final : public DemoService, private io::UDPSocket, private Attendant {
public:
    // The selector and the table must outlive the service. Throws error::ESystemError.
    DemoNameServer(MainSelector& mainSelector, std::span<const DemoName> table);

    std::uint16_t port() const override { return portOf(socket); }

private:
    void ready(io::Selectable* s) override;
    std::string reply(std::string_view query) const;
    const DemoName* find(std::string_view name) const;

    MainSelector& selector;
    std::span<const DemoName> names;
};

}  // namespace parent
