// Ip::Status, Ip::VrfIpIntfStatus and Ip::IpIntfStatus: the IPv4 addresses active on
// the IP interfaces, as the IP agent publishes them at "ip/status".
//
// The same interface status appears twice: under `ipIntfStatus` for every interface,
// and under `vrfIpIntfStatus` grouped by VRF. The ARP paths look interfaces up in the
// flat collection (primary, secondary and virtual address); the replication managers
// watch the per-VRF one. This agent only reads it.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VrfName.h"

namespace Ip {

// The primary address, the set of secondary ones, and the virtual router address
// (address 0.0.0.0: none). `vrf` is the VRF the interface is configured in, empty for
// the default VRF; virtual ARP finds the VRF of a VLAN through its "Vlan<n>" here.
#define IP_IP_INTF_STATUS_ATTRS(X)                                                         \
  X(VALUE, ActiveAddrWithMask, activeAddrWithMask, Wire::IpAddrWithMask, {})               \
  X(SET, ActiveSecondaryWithMask, activeSecondaryWithMask, Wire::IpAddrWithMask)           \
  X(VALUE, ActiveVirtualAddrWithMask, activeVirtualAddrWithMask, Wire::IpAddrWithMask, {}) \
  X(VALUE, Vrf, vrf, L3::VrfName, {})

class IpIntfStatus : public Lum::Entity {
  LUM_ENTITY(Ip::IpIntfStatus, Lum::Entity, IP_IP_INTF_STATUS_ATTRS)

  explicit IpIntfStatus(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

 private:
  Wire::IntfId intfId_;
};

// The IP interfaces of one VRF.
#define IP_VRF_IP_INTF_STATUS_ATTRS(X) \
  X(COLLECTION, IpIntfStatus, ipIntfStatus, Wire::IntfId, IpIntfStatus, intfId)

class VrfIpIntfStatus : public Lum::Entity {
  LUM_ENTITY(Ip::VrfIpIntfStatus, Lum::Entity, IP_VRF_IP_INTF_STATUS_ATTRS)

  explicit VrfIpIntfStatus(const L3::VrfName& vrf) : Entity(Lum::Name(vrf.value())), vrf_(vrf) {}
  const L3::VrfName& vrf() const { return vrf_; }

 private:
  L3::VrfName vrf_;
};

#define IP_STATUS_ATTRS(X)                                                      \
  X(COLLECTION, IpIntfStatus, ipIntfStatus, Wire::IntfId, IpIntfStatus, intfId) \
  X(COLLECTION, VrfIpIntfStatus, vrfIpIntfStatus, L3::VrfName, VrfIpIntfStatus, vrf)

class Status : public Lum::Entity {
  LUM_ENTITY(Ip::Status, Lum::Entity, IP_STATUS_ATTRS)

  explicit Status(const Lum::Name& name) : Entity(name) {}
  // The name under which the default VRF appears in `vrfIpIntfStatus`.
  static L3::VrfName defaultVrf() { return L3::VrfName("default"); }
};

}  // namespace Ip
