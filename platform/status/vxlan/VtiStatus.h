// Vxlan::VtiStatus: one VXLAN tunnel interface (VTI) with its overlay settings, as the
// interface agent publishes it. Both forwarders and virtual ARP keep a state machine
// per VTI and react to these attributes.
//
// mcastGrpDecap holds the multicast groups to receive on, each with the flag the
// document gives it: only a group whose flag is true is to be joined. A VLAN without a
// VNI in vlanToVniMap reads as the none value 0x1000000.
#pragma once

#include <cstdint>

#include "platform/core/Attributes.h"
#include "platform/status/interface/IntfStatus.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"

namespace Vxlan {

#define VXLAN_VTI_STATUS_ATTRS(X)                                     \
  X(VALUE, FloodMcastGrp, floodMcastGrp, Wire::IpAddr, {})            \
  X(MAP, McastGrpDecap, mcastGrpDecap, Wire::IpAddr, bool)            \
  X(VALUE, LocalVtepAddr, localVtepAddr, Wire::IpAddr, {})            \
  X(VALUE, VArpVtepAddr, vArpVtepAddr, Wire::IpAddr, {})              \
  X(VALUE, SrcIpIntf, srcIpIntf, Wire::IntfId, {})                    \
  X(VALUE, SrcIntfKernelName, srcIntfKernelName, Lum::String8, {})    \
  X(MAP, VlanToVniMap, vlanToVniMap, Bridging::VlanId, VniOrNone)     \
  X(VALUE, UdpPort, udpPort, uint16_t, {kDefaultUdpPort})             \
  X(VALUE, Ttl, ttl, uint8_t, {kDefaultTtl})                          \
  X(VALUE, ControllerClientMode, controllerClientMode, bool, {false}) \
  X(VALUE, ControllerClientL3Mode, controllerClientL3Mode, bool, {false})

class VtiStatus : public Interface::IntfStatus {
 public:
  // What a VTI uses until its status says otherwise: the VXLAN port and the TTL of
  // the outer IP header.
  static constexpr uint16_t kDefaultUdpPort = 4789;
  static constexpr uint8_t kDefaultTtl = 64;

  LUM_ENTITY(Vxlan::VtiStatus, Interface::IntfStatus, VXLAN_VTI_STATUS_ATTRS)

  explicit VtiStatus(const Wire::IntfId& id) : IntfStatus(id) {}
};

}  // namespace Vxlan
