// Shared pieces of the text forms of the value types (VlanId, IpAddr, EthAddr, ...).
//
// Every value type parses its own text form in a static `fromString`. They all reject
// malformed text the same way, through `throwMalformedText`, so that a bad attribute
// text always yields a RangeException reading `<Type>: malformed text "<text>"`, with
// bytes outside printable ASCII shown as \xNN.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Lum {

// Reads an unsigned decimal number made of digits only: no sign, no blanks, no base
// prefix. Returns nothing when `text` is empty or holds any other byte. A number that
// does not fit 64 bits reads as UINT64_MAX, so that the caller's limit check reports
// it as out of range rather than as malformed.
std::optional<uint64_t> parseDecimal(std::string_view text);

[[noreturn]] void throwMalformedText(std::string_view typeName, std::string_view text);

// `n` bytes as plain lower-case hex, two digits a byte, nothing between them: how frames
// travel as text between the operator's tool and the agent.
std::string hexText(const uint8_t* bytes, size_t n);

// Appends `text` to `out` with each control or non-ASCII byte written as "\xNN" (and
// so never a NUL), and each byte of `quoted` preceded by a backslash.
void appendEscaped(std::string& out, std::string_view text, std::string_view quoted = {});

// Splits the text of a composite value into exactly N fields at `separator`, which
// none of the field forms may hold. Any other count of fields is malformed text of
// `typeName`; empty fields are kept, for the fields to judge.
template <size_t N>
std::array<std::string_view, N> splitFields(std::string_view text, char separator,
                                            std::string_view typeName) {
  std::array<std::string_view, N> fields;
  std::string_view rest = text;
  for (size_t i = 0; i + 1 < N; ++i) {
    const size_t at = rest.find(separator);
    if (at == std::string_view::npos) throwMalformedText(typeName, text);
    fields[i] = rest.substr(0, at);
    rest.remove_prefix(at + 1);
  }
  if (rest.find(separator) != std::string_view::npos) throwMalformedText(typeName, text);
  fields[N - 1] = rest;
  return fields;
}

}  // namespace Lum
