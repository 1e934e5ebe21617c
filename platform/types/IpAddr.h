// IP addresses of the wire layer.
//
//   Wire::IpAddr             IPv4 address, held in network byte order
//   Wire::Ip6Addr            IPv6 address, 16 bytes
//   Wire::IpGenAddr          either of them, or unset
//   Wire::IpAddrWithMask     IPv4 address and prefix length, "10.0.0.1/24"
//   Wire::IpGenAddrWithMask  IpGenAddr and prefix length, "fe80::1/64"
//
// IpAddr keeps the address as a uint32_t whose bytes in memory are the address bytes
// in wire order: `value()` equals the word memcpy'd out of a received IP header, so
// matching a header field is a plain compare, and writing one is a memcpy. Code that
// wants arithmetic (masks, ranges) uses `hostOrder()`. The two constructors say which
// order they take: `fromNetworkOrder` and `fromHostOrder`.
//
// All types order numerically (10.0.0.9 < 10.0.0.10), compare equal only on equal
// address and length, hash, print their text form with << and read it back with
// `fromString`, which throws Lum::RangeException naming the type and the text.
// Prefix lengths beyond the address width throw with "<Type>::maskLen ..." texts.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <string_view>
#include <type_traits>

#include "platform/types/NetInt.h"

namespace Wire {

class IpAddr {
 public:
  static constexpr std::string_view kTypeName = "IpAddr";

  constexpr IpAddr() = default;
  static constexpr IpAddr fromNetworkOrder(uint32_t word) {
    IpAddr a;
    a.value_ = word;
    return a;
  }
  static constexpr IpAddr fromHostOrder(uint32_t host) {
    return fromNetworkOrder(hostToNet32(host));
  }
  static constexpr IpAddr fromBytes(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3) {
    return fromHostOrder(uint32_t{b0} << 24 | uint32_t{b1} << 16 | uint32_t{b2} << 8 | b3);
  }
  static constexpr IpAddr fromBytes(std::span<const uint8_t, 4> b) {
    return fromBytes(b[0], b[1], b[2], b[3]);
  }
  static IpAddr fromString(std::string_view text);

  // Network byte order: the memory bytes are the address bytes in wire order.
  constexpr uint32_t value() const { return value_; }
  constexpr uint32_t hostOrder() const { return netToHost32(value_); }
  constexpr std::array<uint8_t, 4> bytes() const {
    uint32_t h = hostOrder();
    return {static_cast<uint8_t>(h >> 24), static_cast<uint8_t>(h >> 16),
            static_cast<uint8_t>(h >> 8), static_cast<uint8_t>(h)};
  }

  constexpr bool isZero() const { return value_ == 0; }
  // 224.0.0.0/4.
  constexpr bool isMulticast() const { return (hostOrder() >> 28) == 0xe; }

  friend constexpr bool operator==(IpAddr a, IpAddr b) = default;
  friend constexpr std::strong_ordering operator<=>(IpAddr a, IpAddr b) {
    return a.hostOrder() <=> b.hostOrder();
  }

 private:
  uint32_t value_ = 0;
};

class Ip6Addr {
 public:
  static constexpr std::string_view kTypeName = "Ip6Addr";

  constexpr Ip6Addr() = default;
  explicit constexpr Ip6Addr(const std::array<uint8_t, 16>& bytes) : bytes_(bytes) {}
  static constexpr Ip6Addr fromBytes(std::span<const uint8_t, 16> b) {
    Ip6Addr a;
    for (size_t i = 0; i < 16; ++i) a.bytes_[i] = b[i];
    return a;
  }
  static Ip6Addr fromString(std::string_view text);

  constexpr const std::array<uint8_t, 16>& bytes() const { return bytes_; }
  constexpr bool isZero() const { return *this == Ip6Addr(); }
  // ff00::/8.
  constexpr bool isMulticast() const { return bytes_[0] == 0xff; }

  // Byte-wise order of network-order bytes is numeric order.
  friend constexpr bool operator==(const Ip6Addr& a, const Ip6Addr& b) = default;
  friend constexpr std::strong_ordering operator<=>(const Ip6Addr& a, const Ip6Addr& b) = default;

 private:
  std::array<uint8_t, 16> bytes_{};
};

// An IPv4 or IPv6 address, or unset (the default). The layout is fixed at 20 bytes:
// the address family (AF_INET, AF_INET6, or 0 when unset) as a 32-bit word, then 16
// address bytes; an IPv4 address fills the first 4 and the rest stay zero, so
// equality and ordering can compare the whole array. Unset addresses sort first,
// then IPv4, then IPv6. The text form of an unset address is the empty text.
class IpGenAddr {
 public:
  static constexpr std::string_view kTypeName = "IpGenAddr";

  constexpr IpGenAddr() = default;
  explicit IpGenAddr(IpAddr v4);
  explicit IpGenAddr(const Ip6Addr& v6);
  static IpGenAddr fromString(std::string_view text);

  int family() const { return family_; }
  bool isUnset() const { return family_ == 0; }
  bool isV4() const;
  bool isV6() const;
  bool isZero() const;
  bool isMulticast() const;
  // The address in its own type; throw Lum::RangeException for the other family.
  IpAddr v4() const;
  Ip6Addr v6() const;
  // The raw address bytes (only the first 4 are used by an IPv4 address).
  const std::array<uint8_t, 16>& bytes() const { return addr_; }
  // 32, 128, or 0 when unset.
  unsigned maxMaskLen() const;

  friend bool operator==(const IpGenAddr& a, const IpGenAddr& b) = default;
  friend std::strong_ordering operator<=>(const IpGenAddr& a, const IpGenAddr& b) = default;

 private:
  int32_t family_ = 0;
  std::array<uint8_t, 16> addr_{};
};
static_assert(sizeof(IpGenAddr) == 20 && std::is_trivially_copyable_v<IpGenAddr>);

class IpAddrWithMask {
 public:
  static constexpr std::string_view kTypeName = "IpAddrWithMask";

  IpAddrWithMask() = default;
  // Keeps the host bits of `address`: "10.0.0.1/24" names an interface address, not
  // only its subnet.
  IpAddrWithMask(IpAddr address, int maskLen);
  static IpAddrWithMask fromString(std::string_view text);

  IpAddr address() const { return address_; }
  int maskLen() const { return maskLen_; }

  friend bool operator==(const IpAddrWithMask& a, const IpAddrWithMask& b) = default;
  friend std::strong_ordering operator<=>(const IpAddrWithMask& a,
                                          const IpAddrWithMask& b) = default;

 private:
  IpAddr address_;
  uint8_t maskLen_ = 0;
};

// An unset address only goes with length 0; its text form is the empty text.
class IpGenAddrWithMask {
 public:
  static constexpr std::string_view kTypeName = "IpGenAddrWithMask";

  IpGenAddrWithMask() = default;
  IpGenAddrWithMask(const IpGenAddr& address, int maskLen);
  static IpGenAddrWithMask fromString(std::string_view text);

  const IpGenAddr& address() const { return address_; }
  int maskLen() const { return maskLen_; }

  friend bool operator==(const IpGenAddrWithMask& a, const IpGenAddrWithMask& b) = default;
  friend std::strong_ordering operator<=>(const IpGenAddrWithMask& a,
                                          const IpGenAddrWithMask& b) = default;

 private:
  IpGenAddr address_;
  uint8_t maskLen_ = 0;
};

std::ostream& operator<<(std::ostream& os, IpAddr a);
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a);
std::ostream& operator<<(std::ostream& os, const IpGenAddr& a);
std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a);
std::ostream& operator<<(std::ostream& os, const IpGenAddrWithMask& a);

}  // namespace Wire

template <>
struct std::hash<Wire::IpAddr> {
  size_t operator()(Wire::IpAddr a) const noexcept { return std::hash<uint32_t>()(a.value()); }
};
template <>
struct std::hash<Wire::Ip6Addr> {
  size_t operator()(const Wire::Ip6Addr& a) const noexcept;
};
template <>
struct std::hash<Wire::IpGenAddr> {
  size_t operator()(const Wire::IpGenAddr& a) const noexcept;
};
template <>
struct std::hash<Wire::IpAddrWithMask> {
  size_t operator()(const Wire::IpAddrWithMask& a) const noexcept;
};
template <>
struct std::hash<Wire::IpGenAddrWithMask> {
  size_t operator()(const Wire::IpGenAddrWithMask& a) const noexcept;
};
