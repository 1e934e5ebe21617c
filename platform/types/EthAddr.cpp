#include "platform/types/EthAddr.h"

#include <cstdio>
#include <optional>
#include <ostream>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Wire {

namespace {

std::optional<unsigned> hexDigit(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return std::nullopt;
}

// Reads `groups` hex numbers of 1 to `maxDigits` digits separated by `separator`,
// each filling `maxDigits / 2` bytes of `out`, most significant first.
bool parseGroups(std::string_view text, char separator, size_t groups, size_t maxDigits,
                 std::array<uint8_t, 6>& out) {
  size_t bytesPerGroup = maxDigits / 2;
  for (size_t g = 0; g < groups; ++g) {
    size_t end = g + 1 < groups ? text.find(separator) : text.size();
    if (end == std::string_view::npos) return false;
    std::string_view group = text.substr(0, end);
    if (group.empty() || group.size() > maxDigits) return false;
    unsigned v = 0;
    for (char c : group) {
      std::optional<unsigned> d = hexDigit(c);
      if (!d) return false;
      v = v << 4 | *d;
    }
    for (size_t i = 0; i < bytesPerGroup; ++i) {
      out[g * bytesPerGroup + i] = static_cast<uint8_t>(v >> (8 * (bytesPerGroup - 1 - i)));
    }
    text.remove_prefix(g + 1 < groups ? end + 1 : end);
  }
  return true;
}

}  // namespace

EthAddr EthAddr::fromString(std::string_view text) {
  std::array<uint8_t, 6> b{};
  bool ok = text.find(':') != std::string_view::npos ? parseGroups(text, ':', 6, 2, b)
                                                     : parseGroups(text, '.', 3, 4, b);
  if (!ok) Lum::throwMalformedText(kTypeName, text);
  return fromBytes(b);
}

uint16_t EthAddr::word(size_t i) const {
  if (i > 2) Lum::throwRangeException("EthAddr::word index > 2 not allowed");
  return static_cast<uint16_t>(bytes_[2 * i] << 8 | bytes_[2 * i + 1]);
}

std::ostream& operator<<(std::ostream& os, const EthAddr& a) {
  const std::array<uint8_t, 6>& b = a.bytes();
  char buf[18];
  std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
                b[5]);
  return os << buf;
}

}  // namespace Wire
