// Routing::Fhrp::VirtualRouterMacStatus: the MAC address shared by the virtual routers
// of the switch, as the first-hop-redundancy agent publishes it at
// "routing/fhrp/vrMacStatus". The replication managers watch it; the ARP paths trace
// it. All zero while no shared MAC is set.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/EthAddr.h"

namespace Routing::Fhrp {

#define ROUTING_VIRTUAL_ROUTER_MAC_STATUS_ATTRS(X) \
  X(VALUE, VarpVirtualMac, varpVirtualMac, Wire::EthAddr, {})

class VirtualRouterMacStatus : public Lum::Entity {
  LUM_ENTITY(Routing::Fhrp::VirtualRouterMacStatus, Lum::Entity,
             ROUTING_VIRTUAL_ROUTER_MAC_STATUS_ATTRS)

  explicit VirtualRouterMacStatus(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Routing::Fhrp
