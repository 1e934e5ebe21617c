// Wire::NetU16 and Wire::NetU32: integers in network byte order, for wire headers.
//
// A NetInt holds its bytes exactly as they appear on the wire, in a byte array, so it
// has alignment 1 and no padding: a header struct built from NetInts and byte fields
// matches the wire layout at any offset of a frame buffer, and reading a field is a
// plain member access with no cast and no unaligned load. `value()` gives the number
// in host order, `valueIs()` stores one, `fromHost()` builds one. There is no
// implicit conversion to or from host integers and no comparison with them, so a
// field cannot be read or written without going through the byte-order conversion.
//
// The free functions below swap between host and network order for code that holds
// wire words in plain integers (e.g. Wire::IpAddr).
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <ostream>
#include <span>
#include <string_view>
#include <type_traits>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Wire {

constexpr uint16_t hostToNet16(uint16_t v) {
  return std::endian::native == std::endian::little ? __builtin_bswap16(v) : v;
}
constexpr uint32_t hostToNet32(uint32_t v) {
  return std::endian::native == std::endian::little ? __builtin_bswap32(v) : v;
}
constexpr uint16_t netToHost16(uint16_t v) {
  return hostToNet16(v);
}
constexpr uint32_t netToHost32(uint32_t v) {
  return hostToNet32(v);
}

template <class Host>
class NetInt {
  static_assert(std::is_same_v<Host, uint16_t> || std::is_same_v<Host, uint32_t>);

 public:
  using HostType = Host;
  static constexpr size_t kBytes = sizeof(Host);
  static constexpr std::string_view kTypeName = kBytes == 2 ? "NetU16" : "NetU32";

  constexpr NetInt() = default;
  // Network order to host order and back: the same swap.
  static constexpr Host swap(Host v) {
    if constexpr (kBytes == 2) {
      return hostToNet16(v);
    } else {
      return hostToNet32(v);
    }
  }
  static constexpr NetInt fromHost(Host host) {
    NetInt n;
    n.valueIs(host);
    return n;
  }
  static constexpr NetInt fromBytes(std::span<const uint8_t, kBytes> wire) {
    NetInt n;
    for (size_t i = 0; i < kBytes; ++i) n.bytes_[i] = wire[i];
    return n;
  }

  // Most significant byte first.
  constexpr Host value() const {
    if (std::is_constant_evaluated()) {
      Host v = 0;
      for (uint8_t b : bytes_) v = static_cast<Host>((v << 8) | b);
      return v;
    }
    // At run time one load and a swap: the frame paths read these for every frame.
    Host net;
    __builtin_memcpy(&net, bytes_.data(), kBytes);
    return swap(net);
  }
  constexpr void valueIs(Host host) {
    if (std::is_constant_evaluated()) {
      for (size_t i = kBytes; i-- > 0; host = static_cast<Host>(host >> 8)) {
        bytes_[i] = static_cast<uint8_t>(host & 0xff);
      }
      return;
    }
    const Host net = swap(host);
    __builtin_memcpy(bytes_.data(), &net, kBytes);
  }
  constexpr const std::array<uint8_t, kBytes>& bytes() const { return bytes_; }

  // The text form is the host-order value in decimal.
  static NetInt fromString(std::string_view text) {
    std::optional<uint64_t> n = Lum::parseDecimal(text);
    if (!n) Lum::throwMalformedText(kTypeName, text);
    if (*n > std::numeric_limits<Host>::max()) {
      Lum::throwRangeException(kBytes == 2 ? "NetU16::value > 65535 not allowed"
                                           : "NetU32::value > 4294967295 not allowed");
    }
    return fromHost(static_cast<Host>(*n));
  }

  friend constexpr bool operator==(const NetInt& a, const NetInt& b) = default;
  // Numeric order, which for big-endian bytes is also the byte order.
  friend constexpr std::strong_ordering operator<=>(const NetInt& a, const NetInt& b) {
    return a.value() <=> b.value();
  }
  friend std::ostream& operator<<(std::ostream& os, const NetInt& n) {
    return os << static_cast<uint64_t>(n.value());
  }

 private:
  std::array<uint8_t, kBytes> bytes_{};
};

using NetU16 = NetInt<uint16_t>;
using NetU32 = NetInt<uint32_t>;

// The layout promise that lets NetInts sit in packed wire headers.
static_assert(sizeof(NetU16) == 2 && alignof(NetU16) == 1);
static_assert(sizeof(NetU32) == 4 && alignof(NetU32) == 1);
static_assert(std::is_trivially_copyable_v<NetU16> && std::is_trivially_copyable_v<NetU32>);
static_assert(std::is_standard_layout_v<NetU16> && std::is_standard_layout_v<NetU32>);

}  // namespace Wire

template <class Host>
struct std::hash<Wire::NetInt<Host>> {
  size_t operator()(const Wire::NetInt<Host>& n) const noexcept {
    return std::hash<Host>()(n.value());
  }
};
