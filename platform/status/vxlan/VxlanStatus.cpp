#include "platform/status/vxlan/VxlanStatus.h"

#include <array>
#include <ostream>
#include <sstream>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Vxlan {

IpPortEntry IpPortEntry::fromString(std::string_view text) {
  // A bad field is refused with that field's own text.
  std::array<std::string_view, 3> f = Lum::splitFields<3>(text, ',', kTypeName);
  return IpPortEntry(Wire::IpGenAddrWithMask::fromString(f[0]), VniOrNone::fromString(f[1]),
                     Wire::EthAddr::fromString(f[2]));
}

std::ostream& operator<<(std::ostream& os, const IpPortEntry& e) {
  return os << e.ipAddr() << ',' << e.vni() << ',' << e.mac();
}

LUM_ENTITY_TYPE(IpPortTable, VXLAN_IP_PORT_TABLE_ATTRS)
LUM_ENTITY_TYPE(VxlanStatus, VXLAN_VXLAN_STATUS_ATTRS)
LUM_ENTITY_TYPE(VxlanStatusDir, VXLAN_VXLAN_STATUS_DIR_ATTRS,
                .constructor({"name"}, &Lum::newByName<VxlanStatusDir>))

void IpPortTable::checkEntry(const Wire::IpGenAddrWithMask& ipAddr, const IpPortEntry& entry) {
  if (!(ipAddr == entry.ipAddr())) {
    std::ostringstream text;
    text << "IpPortTable: key " << ipAddr << " differs from the entry's address " << entry.ipAddr();
    Lum::throwRangeException(text.str());
  }
  if (ipAddr.address().isUnset()) {
    Lum::throwRangeException("IpPortTable: an entry without address is not allowed");
  }
}

}  // namespace Vxlan
