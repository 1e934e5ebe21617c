#include "platform/status/ip/AllVrfStatusLocal.h"

namespace Ip {

LUM_ENTITY_TYPE(VrfStatusLocal, IP_VRF_STATUS_LOCAL_ATTRS)
LUM_ENTITY_TYPE(AllVrfStatusLocal, IP_ALL_VRF_STATUS_LOCAL_ATTRS,
                .constructor({"name"}, &Lum::newByName<AllVrfStatusLocal>))

}  // namespace Ip
