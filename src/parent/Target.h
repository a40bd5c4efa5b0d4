// The targets of checks, as people write them:
//
//   KIND://HOST:PORT?PARAMETER=VALUE&PARAMETER=VALUE
//   tcp://mail.example.com:25?connClose=false
//
// What there is of kinds, what each allows and what it asks the worker for stands in one table;
// the parser and the texts about the forms come from it.
//
// HOST is a name or an IPv4 address, and like the parameters can hold percent escapes
// (RFC 3986, 2.1). KIND can be in capitals; the names of parameters are taken to the letter.
#pragma once

#include "types/property.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace parent {

// What may stand behind the "?" of a target.
struct TargetParameter {
    const char* name;
    std::uint32_t property;  // the setting of the check, see types/vocabulary.h
    const char* values;      // what can be given, for the text about the form
    // The setting; null if the text is no such value.
    std::unique_ptr<tql::property_t> (*read)(std::uint32_t property, const std::string& text);
};

struct TargetKind {
    const char* name;           // in small letters
    std::int32_t service;       // SERVICE_ number of queues/records/services.h
    std::uint16_t defaultPort;  // 0: each target must name its port
    std::span<const TargetParameter> parameters;

    // How such a target is written: "tcp://HOST:PORT[?connClose=true|false]".
    std::string form() const;
};

std::span<const TargetKind> targetKinds();

// All forms, separated by ", ".
std::string knownForms();

struct Target {
    std::string text;                  // as it was given
    const TargetKind* kind = nullptr;  // of targetKinds()
    std::string host;                  // without percent escapes
    std::uint16_t port = 0;
    tql::property_map properties;  // what the parameters set
};

// Throws error::EParseError with what is wrong and which forms exist; the text doesn't repeat the
// whole target.
Target parseTarget(std::string_view text);

}  // namespace parent
