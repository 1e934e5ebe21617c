#include "platform/status/routing/FhrpStatusV4.h"

#include <string>

namespace Routing::Fhrp {

LUM_ENTITY_TYPE(VirtualRouterStatusV4, ROUTING_VIRTUAL_ROUTER_STATUS_V4_ATTRS)
LUM_ENTITY_TYPE(VirtualRouterIntfStatusV4, ROUTING_VIRTUAL_ROUTER_INTF_STATUS_V4_ATTRS)
LUM_ENTITY_TYPE(StatusV4, ROUTING_STATUS_V4_ATTRS,
                .constructor({"name"}, &Lum::newByName<StatusV4>))

VirtualRouterStatusV4::VirtualRouterStatusV4(VrId vrId)
    : Entity(Lum::Name(std::to_string(vrId.value()))), vrId_(vrId) {}

bool StatusV4::isSharedVirtualAddr(const Wire::IntfId& intf, Wire::IpAddr addr) const {
  Lum::Ptr<VirtualRouterIntfStatusV4> i = intfStatus(intf);
  if (!i) return false;
  Lum::Ptr<VirtualRouterStatusV4> vr = i->vrStatus(kSharedVirtualRouterVrId);
  return vr && vr->ipAddrs(addr);
}

}  // namespace Routing::Fhrp
