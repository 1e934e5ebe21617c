#include "platform/status/MacVlanPair.h"

#include <optional>
#include <ostream>

#include "platform/Exception.h"
#include "platform/ValueText.h"

namespace Vxlan {

MacVlanPair MacVlanPair::fromString(std::string_view text) {
  if (text.empty()) return MacVlanPair();
  // Neither MAC form holds a '/', so the last one splits.
  const size_t slash = text.rfind('/');
  if (slash == std::string_view::npos) Lum::throwMalformedText(kTypeName, text);
  std::optional<uint64_t> vlan = Lum::parseDecimal(text.substr(slash + 1));
  if (!vlan) Lum::throwMalformedText(kTypeName, text);
  Wire::EthAddr mac;
  try {
    mac = Wire::EthAddr::fromString(text.substr(0, slash));
  } catch (const Lum::RangeException&) {
    // Name the whole text: the caller gave a pair, not a MAC.
    Lum::throwMalformedText(kTypeName, text);
  }
  // A number out of range is refused with the VLAN's own range text, like a VlanId.
  return MacVlanPair(mac, Bridging::VlanId(*vlan));
}

std::ostream& operator<<(std::ostream& os, const MacVlanPair& p) {
  if (p.isNone()) return os;
  return os << p.mac() << '/' << p.vlanId();
}

}  // namespace Vxlan
