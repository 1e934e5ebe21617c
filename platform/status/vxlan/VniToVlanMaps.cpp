#include "platform/status/vxlan/VniToVlanMaps.h"

namespace Vxlan {

LUM_ENTITY_TYPE(VniToVlanMap, VXLAN_VNI_TO_VLAN_MAP_ATTRS)
LUM_ENTITY_TYPE(VniToVlanMaps, VXLAN_VNI_TO_VLAN_MAPS_ATTRS,
                .constructor({"name"}, &Lum::newByName<VniToVlanMaps>))

}  // namespace Vxlan
