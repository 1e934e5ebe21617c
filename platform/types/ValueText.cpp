#include "platform/types/ValueText.h"

#include <cstdio>
#include <limits>
#include <string>

#include "platform/core/Exception.h"

namespace Lum {

std::optional<uint64_t> parseDecimal(std::string_view text) {
  if (text.empty()) return std::nullopt;
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  uint64_t n = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    auto digit = static_cast<uint64_t>(c - '0');
    // Saturate instead of wrapping: a wrapped value could land inside the limits.
    n = n > (kMax - digit) / 10 ? kMax : n * 10 + digit;
  }
  return n;
}

void throwMalformedText(std::string_view typeName, std::string_view text) {
  std::string message(typeName);
  message += ": malformed text \"";
  // Bad text comes from outside; keep control bytes (and a NUL, which would end
  // what()) out of the message and logs.
  appendEscaped(message, text);
  message += '"';
  throwRangeException(message);
}

void appendEscaped(std::string& out, std::string_view text, std::string_view quoted) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7f) {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      out += escaped;
      continue;
    }
    if (quoted.find(c) != std::string_view::npos) out += '\\';
    out += c;
  }
}

std::string hexText(const uint8_t* bytes, size_t n) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s(2 * n, '0');
  for (size_t i = 0; i < n; ++i) {
    s[2 * i] = kDigits[bytes[i] >> 4];
    s[2 * i + 1] = kDigits[bytes[i] & 0xf];
  }
  return s;
}

}  // namespace Lum
