// The numbers of classes and properties, and their names.
//
// Objects and properties travel as numbers, which all processes of the server share. The names
// serve messages and people; no name goes on the wire. The numbers are not contiguous: they come
// in blocks, mostly of a hundred, one for each part of the schema, and the settings of a check lie
// in the block from 500 on. Two numbers can carry the same name (913 and 915).
//
// The name maps are filled by the first look-up of either kind, which must not run on two threads
// at once; from then on they are only read.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace tql {

// The properties that the checks read.
namespace property {

inline constexpr std::uint32_t user = 517;
inline constexpr std::uint32_t dnsHost = 518;
inline constexpr std::uint32_t dnsIp = 519;
inline constexpr std::uint32_t connClose = 533;
inline constexpr std::uint32_t httpUrl = 534;
inline constexpr std::uint32_t checkPassword = 535;
inline constexpr std::uint32_t smtpExecuteVrfy = 541;
inline constexpr std::uint32_t httpStatusRegex = 542;
inline constexpr std::uint32_t httpContentRegex = 543;
inline constexpr std::uint32_t httpVersion = 557;
inline constexpr std::uint32_t useSsl = 559;
inline constexpr std::uint32_t httpUserAgent = 563;

}  // namespace property

// All class names by number: positions 0 to 94, without 78, which is not assigned.
const std::map<std::uint32_t, std::string>& classNames();
// All property names by number.
const std::map<std::uint32_t, std::string>& propertyNames();

// The name of a class, or "<unknown class: N>".
std::string className(std::uint32_t number);
// The name of a property, or "<unknown property: N>".
std::string propertyName(std::uint32_t number);

}  // namespace tql
