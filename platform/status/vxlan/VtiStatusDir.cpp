#include "platform/status/vxlan/VtiStatusDir.h"

namespace Vxlan {

LUM_ENTITY_TYPE(VtiStatusDir, VXLAN_VTI_STATUS_DIR_ATTRS,
                .constructor({"name"}, &Lum::newByName<VtiStatusDir>))

}  // namespace Vxlan
