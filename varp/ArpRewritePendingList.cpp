#include "varp/ArpRewritePendingList.h"

#include <sstream>

namespace Vxlan {

namespace {

Lum::Name nameOf(const VniIpPairV2& key) {
  std::ostringstream os;
  os << key;
  return Lum::Name(os.str());
}

}  // namespace

LUM_ENTITY_TYPE(ArpRewritePendingList, VXLAN_ARP_REWRITE_PENDING_LIST_ATTRS)

ArpRewritePendingList::ArpRewritePendingList(const VniIpPairV2& key)
    : Entity(nameOf(key)), vniIp_(key) {}

}  // namespace Vxlan
