#include "platform/status/routing/VirtualRouterMacStatus.h"

namespace Routing::Fhrp {

LUM_ENTITY_TYPE(VirtualRouterMacStatus, ROUTING_VIRTUAL_ROUTER_MAC_STATUS_ATTRS,
                .constructor({"name"}, &Lum::newByName<VirtualRouterMacStatus>))

}  // namespace Routing::Fhrp
