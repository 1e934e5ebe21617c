#include "platform/status/vxlan/VxlanHwStatus.h"

namespace Vxlan {

LUM_ENTITY_TYPE(VxlanHwStatus, VXLAN_VXLAN_HW_STATUS_ATTRS)
LUM_ENTITY_TYPE(VxlanHwStatusDir, VXLAN_VXLAN_HW_STATUS_DIR_ATTRS,
                .constructor({"name"}, &Lum::newByName<VxlanHwStatusDir>))

}  // namespace Vxlan
