// Routing::Fhrp::StatusV4, VirtualRouterIntfStatusV4 and VirtualRouterStatusV4: the
// IPv4 virtual routers of each interface, as the first-hop-redundancy agent publishes
// them at "routing/fhrp/status".
//
// The layout is interface -> virtual router id -> address -> flag. An address with
// the flag true is a virtual router address of that interface. This agent only reads
// it, and only the shared virtual router (kSharedVirtualRouterVrId): the ARP paths
// answer for the addresses found there. Lookups of a missing interface or router give
// an empty pointer; a missing address reads as false. VrId 0 is not a virtual router:
// it is refused as an empty key.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VrId.h"

namespace Routing::Fhrp {

// The id under which an interface's shared virtual router addresses appear: one above
// the ids a protocol instance may use.
inline constexpr VrId kSharedVirtualRouterVrId{256};

#define ROUTING_VIRTUAL_ROUTER_STATUS_V4_ATTRS(X) X(MAP, IpAddrs, ipAddrs, Wire::IpAddr, bool)

class VirtualRouterStatusV4 : public Lum::Entity {
  LUM_ENTITY(Routing::Fhrp::VirtualRouterStatusV4, Lum::Entity,
             ROUTING_VIRTUAL_ROUTER_STATUS_V4_ATTRS)

  explicit VirtualRouterStatusV4(VrId vrId);
  VrId vrId() const { return vrId_; }

 private:
  VrId vrId_;
};

#define ROUTING_VIRTUAL_ROUTER_INTF_STATUS_V4_ATTRS(X) \
  X(COLLECTION, VrStatus, vrStatus, VrId, VirtualRouterStatusV4, vrId)

class VirtualRouterIntfStatusV4 : public Lum::Entity {
  LUM_ENTITY(Routing::Fhrp::VirtualRouterIntfStatusV4, Lum::Entity,
             ROUTING_VIRTUAL_ROUTER_INTF_STATUS_V4_ATTRS)

  explicit VirtualRouterIntfStatusV4(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

 private:
  Wire::IntfId intfId_;
};

#define ROUTING_STATUS_V4_ATTRS(X) \
  X(COLLECTION, IntfStatus, intfStatus, Wire::IntfId, VirtualRouterIntfStatusV4, intfId)

class StatusV4 : public Lum::Entity {
  LUM_ENTITY(Routing::Fhrp::StatusV4, Lum::Entity, ROUTING_STATUS_V4_ATTRS)

  explicit StatusV4(const Lum::Name& name) : Entity(name) {}
  // True when `addr` is flagged as an address of the shared virtual router of `intf`.
  bool isSharedVirtualAddr(const Wire::IntfId& intf, Wire::IpAddr addr) const;
};

}  // namespace Routing::Fhrp
