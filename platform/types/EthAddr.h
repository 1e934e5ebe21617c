// Wire::EthAddr: a 48-bit Ethernet (MAC) address.
//
// The six bytes are held in wire order with alignment 1, so an EthAddr can sit in a
// packed Ethernet or ARP header. `word(i)` reads bytes 2i and 2i+1 as one host-order
// 16-bit number, the form the three-word constructor takes and that hardware tables
// often use. The text form is "00:1c:73:aa:bb:cc" (lower case); `fromString` also
// reads upper case, one-digit groups ("0:1c:73:aa:bb:cc") and the dotted form
// "001c.73aa.bbcc". Ordering is byte-wise, which is numeric order.
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <string_view>
#include <type_traits>

namespace Wire {

class EthAddr {
 public:
  static constexpr std::string_view kTypeName = "EthAddr";

  constexpr EthAddr() = default;
  explicit constexpr EthAddr(uint16_t w0, uint16_t w1, uint16_t w2)
      : bytes_{static_cast<uint8_t>(w0 >> 8), static_cast<uint8_t>(w0),
               static_cast<uint8_t>(w1 >> 8), static_cast<uint8_t>(w1),
               static_cast<uint8_t>(w2 >> 8), static_cast<uint8_t>(w2)} {}
  static constexpr EthAddr fromBytes(std::span<const uint8_t, 6> b) {
    EthAddr a;
    for (size_t i = 0; i < 6; ++i) a.bytes_[i] = b[i];
    return a;
  }
  // For frame code holding a pointer into a received header.
  static constexpr EthAddr fromBytes(const uint8_t* sixBytes) {
    return fromBytes(std::span<const uint8_t, 6>(sixBytes, 6));
  }
  static EthAddr fromString(std::string_view text);

  constexpr const std::array<uint8_t, 6>& bytes() const { return bytes_; }
  // i is 0, 1 or 2; anything else throws Lum::RangeException.
  uint16_t word(size_t i) const;

  // The group bit: the low bit of the first byte.
  constexpr bool isMulticast() const { return (bytes_[0] & 1) != 0; }
  constexpr bool isBroadcast() const { return *this == EthAddr(0xffff, 0xffff, 0xffff); }
  constexpr bool isZero() const { return *this == EthAddr(); }

  // The six bytes as one big-endian number: the bytes' order, compared at once (map
  // keys on the frame paths compare these).
  constexpr uint64_t number() const {
    if (std::is_constant_evaluated()) {
      uint64_t n = 0;
      for (uint8_t b : bytes_) n = n << 8 | b;
      return n;
    }
    // At run time one load and a swap (little-endian hosts; a big-endian one loads the
    // number as it stands).
    uint64_t n = 0;
    __builtin_memcpy(&n, bytes_.data(), 6);
    if constexpr (std::endian::native == std::endian::little) return __builtin_bswap64(n) >> 16;
    return n >> 16;
  }

  friend constexpr bool operator==(const EthAddr& a, const EthAddr& b) {
    return a.number() == b.number();
  }
  friend constexpr std::strong_ordering operator<=>(const EthAddr& a, const EthAddr& b) {
    return a.number() <=> b.number();
  }

 private:
  std::array<uint8_t, 6> bytes_{};
};
static_assert(sizeof(EthAddr) == 6 && alignof(EthAddr) == 1);
static_assert(std::is_trivially_copyable_v<EthAddr>);

std::ostream& operator<<(std::ostream& os, const EthAddr& a);

}  // namespace Wire

template <>
struct std::hash<Wire::EthAddr> {
  size_t operator()(const Wire::EthAddr& a) const noexcept {
    uint64_t v = 0;
    for (uint8_t b : a.bytes()) v = v << 8 | b;
    return std::hash<uint64_t>()(v);
  }
};
