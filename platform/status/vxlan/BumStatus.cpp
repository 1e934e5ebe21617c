#include "platform/status/vxlan/BumStatus.h"

namespace Vxlan {

LUM_ENTITY_TYPE(BumVtepList, VXLAN_BUM_VTEP_LIST_ATTRS)
LUM_ENTITY_TYPE(BumStatus, VXLAN_BUM_STATUS_ATTRS)

BumVtepList::BumVtepList(const MacVlanPair& key)
    : Entity(Lum::Name(Lum::toText(key))), macVlan_(key) {}

}  // namespace Vxlan
