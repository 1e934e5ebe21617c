// Vxlan::VxlanHwStatusDir and Vxlan::VxlanHwStatus: what the hardware agent reports
// for VXLAN, mounted read-only by this agent.
//
// The directory owns the learned hosts (fdbStatus) and the flood lists (bumStatus),
// both built with it and alive as long as it is, and holds one VxlanHwStatus per
// VTI. Of those the remote-to-local forwarder follows portId, the port id it writes
// into the header of each frame it hands to the switch, and the local send path
// reads cpuSourcePortId; 0xFFFF in either means that no port is known yet.
// remoteVtep is the set of remote VTEPs known for the VTI.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/status/vxlan/BumStatus.h"
#include "platform/status/vxlan/FdbStatus.h"
#include "platform/types/HwPortId.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"

namespace Vxlan {

#define VXLAN_VXLAN_HW_STATUS_ATTRS(X)                     \
  X(VALUE, PortId, portId, HwPortId, {})                   \
  X(VALUE, CpuSourcePortId, cpuSourcePortId, HwPortId, {}) \
  X(SET, RemoteVtep, remoteVtep, Wire::IpAddr)

class VxlanHwStatus : public Lum::Entity {
  LUM_ENTITY(Vxlan::VxlanHwStatus, Lum::Entity, VXLAN_VXLAN_HW_STATUS_ATTRS)

  explicit VxlanHwStatus(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

 private:
  Wire::IntfId intfId_;
};

#define VXLAN_VXLAN_HW_STATUS_DIR_ATTRS(X)                                         \
  X(CHILD, FdbStatus, fdbStatus, FdbStatus)                                        \
  X(COLLECTION, VxlanHwStatus, vxlanHwStatus, Wire::IntfId, VxlanHwStatus, intfId) \
  X(CHILD, BumStatus, bumStatus, BumStatus)

class VxlanHwStatusDir : public Lum::Entity {
  LUM_ENTITY(Vxlan::VxlanHwStatusDir, Lum::Entity, VXLAN_VXLAN_HW_STATUS_DIR_ATTRS)

  explicit VxlanHwStatusDir(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Vxlan
