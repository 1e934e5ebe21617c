// Vxlan::VniToVlanMaps and Vxlan::VniToVlanMap: the VNI to VLAN table of each VTI.
//
// Kept in the agent's memory only (the agent creates the directory "vniToVlanMaps").
// The remote-to-local forwarder is its only writer; virtual ARP reads it, and the
// frame path looks a VNI up once per frame. A VNI without a VLAN reads as VLAN 0
// (none).
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/IntfId.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"

namespace Vxlan {

#define VXLAN_VNI_TO_VLAN_MAP_ATTRS(X) \
  X(MAP, VniToVlanMap, vniToVlanMap, Vni, Bridging::VlanIdOrNone)

class VniToVlanMap : public Lum::Entity {
  LUM_ENTITY(Vxlan::VniToVlanMap, Lum::Entity, VXLAN_VNI_TO_VLAN_MAP_ATTRS)

  explicit VniToVlanMap(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

 private:
  Wire::IntfId intfId_;
};

#define VXLAN_VNI_TO_VLAN_MAPS_ATTRS(X) \
  X(COLLECTION, VtiVniToVlanMap, vtiVniToVlanMap, Wire::IntfId, VniToVlanMap, intfId)

class VniToVlanMaps : public Lum::Entity {
  LUM_ENTITY(Vxlan::VniToVlanMaps, Lum::Entity, VXLAN_VNI_TO_VLAN_MAPS_ATTRS)

  explicit VniToVlanMaps(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Vxlan
