#include "platform/status/vxlan/MacVlanPair.h"

#include <array>
#include <optional>
#include <ostream>

#include "platform/types/ValueText.h"

namespace Vxlan {

MacVlanPair MacVlanPair::fromString(std::string_view text) {
  if (text.empty()) return MacVlanPair();
  // Neither MAC form holds a '/'.
  std::array<std::string_view, 2> f = Lum::splitFields<2>(text, '/', kTypeName);
  std::optional<uint64_t> vlan = Lum::parseDecimal(f[1]);
  if (!vlan) Lum::throwMalformedText(kTypeName, text);
  // A bad MAC is refused with the MAC's own text, a VLAN out of range with the
  // VlanId range text: each names the part that is wrong.
  return MacVlanPair(Wire::EthAddr::fromString(f[0]), Bridging::VlanId(*vlan));
}

std::ostream& operator<<(std::ostream& os, const MacVlanPair& p) {
  if (p.isNone()) return os;
  return os << p.mac() << '/' << p.vlanId();
}

}  // namespace Vxlan
