#include "platform/status/vxlan/VtiStatus.h"

namespace Vxlan {

LUM_ENTITY_TYPE(VtiStatus, VXLAN_VTI_STATUS_ATTRS)

}  // namespace Vxlan
