// Vxlan::MacVlanPair: a MAC address in a VLAN, the key of the hardware agent's
// learned hosts and flood lists.
//
// The text form is "<mac>/<vlan>", e.g. "00:11:22:33:44:55/10"; `fromString` reads
// every MAC form that Wire::EthAddr reads. A pair with the all-zero MAC is a real key
// (the default flood list of its VLAN), so "no pair" cannot be spelt with a MAC: the
// default-built pair has no VLAN instead. It keys nothing, which lets the entity
// collections tell it from every real key; its text form is the empty text, and
// `vlanId()` of it throws the VlanId range exception. Pairs order by MAC, then VLAN.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>

#include "platform/types/EthAddr.h"
#include "platform/types/VlanId.h"

namespace Vxlan {

class MacVlanPair {
 public:
  static constexpr std::string_view kTypeName = "MacVlanPair";

  constexpr MacVlanPair() = default;
  constexpr MacVlanPair(const Wire::EthAddr& mac, Bridging::VlanId vlanId)
      : mac_(mac), vlan_(vlanId) {}
  static MacVlanPair fromString(std::string_view text);

  constexpr const Wire::EthAddr& mac() const { return mac_; }
  Bridging::VlanId vlanId() const { return vlan_.vlanId(); }
  constexpr bool isNone() const { return vlan_.isNone(); }

  friend constexpr bool operator==(const MacVlanPair& a, const MacVlanPair& b) = default;
  friend constexpr std::strong_ordering operator<=>(const MacVlanPair& a,
                                                    const MacVlanPair& b) = default;

 private:
  friend struct std::hash<MacVlanPair>;
  Wire::EthAddr mac_;
  Bridging::VlanIdOrNone vlan_;
};

std::ostream& operator<<(std::ostream& os, const MacVlanPair& p);

}  // namespace Vxlan

template <>
struct std::hash<Vxlan::MacVlanPair> {
  size_t operator()(const Vxlan::MacVlanPair& p) const noexcept {
    // 48 bits of MAC and 12 of VLAN fit one word: no collisions between real keys.
    uint64_t v = p.vlan_.value();
    for (uint8_t b : p.mac_.bytes()) v = v << 8 | b;
    return std::hash<uint64_t>()(v);
  }
};
