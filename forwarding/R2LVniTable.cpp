// The VNI to VLAN table of LumVtiStatusSm: the inverse of the status's vlanToVniMap,
// kept in the shared Vxlan::VniToVlanMap of the VTI, which the frame path reads for
// every frame and virtual ARP reads as well. This machine is its only writer.
#include "forwarding/ForwardingTrace.h"
#include "forwarding/Remote2LocalForwarderSm.h"

namespace Vxlan {

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVlanToVniMap(Bridging::VlanId vlan) {
  const Lum::Ptr<const VtiStatus> status = notifier();
  if (!status) return;
  const VniOrNone vni = status->vlanToVniMap(vlan);
  R2L_TRACE(8, "() vlan:" << vlan << " vni:" << vni);
  VniToVlanMap* map = vniToVlanForVti_ ? vniToVlanForVti_->notifier().ptr() : nullptr;
  if (!map) return;
  if (vni.isNone()) {
    // Only the first entry of this VLAN goes; a VNI that another VLAN also named
    // keeps no reverse entry until the next rebuild.
    for (const auto& entry : map->vniToVlanMap()) {
      if (entry.second != Bridging::VlanIdOrNone(vlan)) continue;
      const Vni gone = entry.first;
      R2L_TRACE(7, "() removing vlan:" << vlan << " vni:" << gone);
      map->vniToVlanMapDel(gone);
      return;
    }
    return;
  }
  R2L_TRACE(7, "() adding vlan:" << vlan << " vni:" << vni);
  map->vniToVlanMapIs(Vni(vni.value()), Bridging::VlanIdOrNone(vlan));
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVlanToVniMap() {
  R2L_TRACE(8, "()");
  const Lum::Ptr<const VtiStatus> status = notifier();
  VniToVlanMap* map = vniToVlanForVti_ ? vniToVlanForVti_->notifier().ptr() : nullptr;
  if (!map || !status) return;
  map->vniToVlanMapDelAll();
  for (Bridging::VlanId vlan : status->vlanToVniMap().keys()) handleVlanToVniMap(vlan);
}

}  // namespace Vxlan
