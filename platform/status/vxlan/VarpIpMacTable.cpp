#include "platform/status/vxlan/VarpIpMacTable.h"

#include <array>
#include <ostream>
#include <sstream>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Vxlan {

VarpIpMacEntry VarpIpMacEntry::fromString(std::string_view text) {
  // A bad field is refused with that field's own text.
  std::array<std::string_view, 3> f = Lum::splitFields<3>(text, ',', kTypeName);
  return VarpIpMacEntry(Wire::IpGenAddr::fromString(f[0]), VniOrNone::fromString(f[1]),
                        Wire::EthAddr::fromString(f[2]));
}

std::ostream& operator<<(std::ostream& os, const VarpIpMacEntry& e) {
  return os << e.ipAddr() << ',' << e.vni() << ',' << e.mac();
}

LUM_ENTITY_TYPE(VarpIpMacTable, VXLAN_VARP_IP_MAC_TABLE_ATTRS)
LUM_ENTITY_TYPE(VarpIpMacTableCol, VXLAN_VARP_IP_MAC_TABLE_COL_ATTRS,
                .constructor({"name"}, &Lum::newByName<VarpIpMacTableCol>))

void VarpIpMacTable::checkEntry(const Wire::IpGenAddr& ipAddr, const VarpIpMacEntry& entry) {
  if (!(ipAddr == entry.ipAddr())) {
    std::ostringstream text;
    text << "VarpIpMacTable: key " << ipAddr << " differs from the entry's address "
         << entry.ipAddr();
    Lum::throwRangeException(text.str());
  }
  if (ipAddr.isUnset()) {
    Lum::throwRangeException("VarpIpMacTable: an entry without address is not allowed");
  }
}

}  // namespace Vxlan
