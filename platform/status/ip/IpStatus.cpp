#include "platform/status/ip/IpStatus.h"

namespace Ip {

LUM_ENTITY_TYPE(IpIntfStatus, IP_IP_INTF_STATUS_ATTRS)
LUM_ENTITY_TYPE(VrfIpIntfStatus, IP_VRF_IP_INTF_STATUS_ATTRS)
LUM_ENTITY_TYPE(Status, IP_STATUS_ATTRS, .constructor({"name"}, &Lum::newByName<Status>))

}  // namespace Ip
