#include "platform/status/vxlan/FdbStatus.h"

namespace Vxlan {

LUM_ENTITY_TYPE(LearnedHost, VXLAN_LEARNED_HOST_ATTRS)
LUM_ENTITY_TYPE(FdbStatus, VXLAN_FDB_STATUS_ATTRS)

LearnedHost::LearnedHost(const MacVlanPair& key)
    : Entity(Lum::Name(Lum::toText(key))), macVlan_(key) {}

}  // namespace Vxlan
