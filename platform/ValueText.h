// Shared pieces of the text forms of the value types (VlanId, IpAddr, EthAddr, ...).
//
// Every value type parses its own text form in a static `fromString`. They all reject
// malformed text the same way, through `throwMalformedText`, so that a bad attribute
// text always yields a RangeException reading `<Type>: malformed text "<text>"`, with
// bytes outside printable ASCII shown as \xNN.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Lum {

// Reads an unsigned decimal number made of digits only: no sign, no blanks, no base
// prefix. Returns nothing when `text` is empty or holds any other byte. A number that
// does not fit 64 bits reads as UINT64_MAX, so that the caller's limit check reports
// it as out of range rather than as malformed.
std::optional<uint64_t> parseDecimal(std::string_view text);

[[noreturn]] void throwMalformedText(std::string_view typeName, std::string_view text);

}  // namespace Lum
