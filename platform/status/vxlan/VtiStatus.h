// Vxlan::VtiStatus: one VXLAN tunnel interface (VTI) with its overlay settings, as the
// interface agent publishes it. Both forwarders and virtual ARP keep a state machine
// per VTI and react to these attributes.
#pragma once

#include <cstdint>

#include "platform/core/ValueMap.h"
#include "platform/status/interface/IntfStatus.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"

namespace Vxlan {

class VtiStatus : public Interface::IntfStatus {
 public:
  enum : int {
    kFloodMcastGrp = IntfStatus::kAttrEnd,
    kMcastGrpDecap,
    kLocalVtepAddr,
    kVArpVtepAddr,
    kSrcIpIntf,
    kSrcIntfKernelName,
    kVlanToVniMap,
    kUdpPort,
    kTtl,
    kControllerClientMode,
    kControllerClientL3Mode,
    kAttrEnd
  };
  static constexpr uint16_t kDefaultUdpPort = 4789;

  class NotifieeConst : public Lum::NotifieeConstOf<IntfStatus::NotifieeConst, VtiStatus> {
   public:
    virtual void onFloodMcastGrp() {}
    virtual void onMcastGrpDecap(Wire::IpAddr) {}
    virtual void onMcastGrpDecap() {}
    virtual void onLocalVtepAddr() {}
    virtual void onVArpVtepAddr() {}
    virtual void onSrcIpIntf() {}
    virtual void onSrcIntfKernelName() {}
    virtual void onVlanToVniMap(Bridging::VlanId) {}
    virtual void onVlanToVniMap() {}
    virtual void onUdpPort() {}
    virtual void onTtl() {}
    virtual void onControllerClientMode() {}
    virtual void onControllerClientL3Mode() {}
  };

  explicit VtiStatus(const Wire::IntfId& id) : IntfStatus(id) {}

  Wire::IpAddr floodMcastGrp() const { return floodMcastGrp_; }
  void floodMcastGrpIs(Wire::IpAddr v) {
    attrIs<&NotifieeConst::onFloodMcastGrp>(floodMcastGrp_, v, kFloodMcastGrp);
  }

  // Multicast groups to receive on.
  bool mcastGrpDecap(Wire::IpAddr g) const { return mcastGrpDecap_.contains(g); }
  const Lum::ValueMap<Wire::IpAddr, bool>& mcastGrpDecap() const { return mcastGrpDecap_; }
  void mcastGrpDecapIs(Wire::IpAddr g) {
    if (mcastGrpDecap_.is(g, true))
      notify<Lum::keyed(&NotifieeConst::onMcastGrpDecap)>(kMcastGrpDecap, g);
  }
  void mcastGrpDecapDel(Wire::IpAddr g) {
    if (mcastGrpDecap_.del(g))
      notify<Lum::keyed(&NotifieeConst::onMcastGrpDecap)>(kMcastGrpDecap, g);
  }

  Wire::IpAddr localVtepAddr() const { return localVtepAddr_; }
  void localVtepAddrIs(Wire::IpAddr v) {
    attrIs<&NotifieeConst::onLocalVtepAddr>(localVtepAddr_, v, kLocalVtepAddr);
  }
  Wire::IpAddr vArpVtepAddr() const { return vArpVtepAddr_; }
  void vArpVtepAddrIs(Wire::IpAddr v) {
    attrIs<&NotifieeConst::onVArpVtepAddr>(vArpVtepAddr_, v, kVArpVtepAddr);
  }
  const Wire::IntfId& srcIpIntf() const { return srcIpIntf_; }
  void srcIpIntfIs(const Wire::IntfId& v) {
    attrIs<&NotifieeConst::onSrcIpIntf>(srcIpIntf_, v, kSrcIpIntf);
  }
  const Lum::String8& srcIntfKernelName() const { return srcIntfKernelName_; }
  void srcIntfKernelNameIs(const Lum::String8& v) {
    attrIs<&NotifieeConst::onSrcIntfKernelName>(srcIntfKernelName_, v, kSrcIntfKernelName);
  }

  // The VNI of a VLAN; a VLAN without one reads as the none value 0x1000000.
  VniOrNone vlanToVniMap(Bridging::VlanId vlan) const { return vlanToVniMap_(vlan); }
  const Lum::ValueMap<Bridging::VlanId, VniOrNone>& vlanToVniMap() const { return vlanToVniMap_; }
  void vlanToVniMapIs(Bridging::VlanId vlan, VniOrNone vni) {
    if (vlanToVniMap_.is(vlan, vni)) {
      notify<Lum::keyed(&NotifieeConst::onVlanToVniMap)>(kVlanToVniMap, vlan);
    }
  }
  void vlanToVniMapDel(Bridging::VlanId vlan) {
    if (vlanToVniMap_.del(vlan)) {
      notify<Lum::keyed(&NotifieeConst::onVlanToVniMap)>(kVlanToVniMap, vlan);
    }
  }

  uint16_t udpPort() const { return udpPort_; }
  void udpPortIs(uint16_t v) { attrIs<&NotifieeConst::onUdpPort>(udpPort_, v, kUdpPort); }
  uint8_t ttl() const { return ttl_; }
  void ttlIs(uint8_t v) { attrIs<&NotifieeConst::onTtl>(ttl_, v, kTtl); }
  bool controllerClientMode() const { return controllerClientMode_; }
  void controllerClientModeIs(bool v) {
    attrIs<&NotifieeConst::onControllerClientMode>(controllerClientMode_, v, kControllerClientMode);
  }
  bool controllerClientL3Mode() const { return controllerClientL3Mode_; }
  void controllerClientL3ModeIs(bool v) {
    attrIs<&NotifieeConst::onControllerClientL3Mode>(controllerClientL3Mode_, v,
                                                     kControllerClientL3Mode);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Wire::IpAddr floodMcastGrp_;
  Lum::ValueMap<Wire::IpAddr, bool> mcastGrpDecap_;
  Wire::IpAddr localVtepAddr_;
  Wire::IpAddr vArpVtepAddr_;
  Wire::IntfId srcIpIntf_;
  Lum::String8 srcIntfKernelName_;
  Lum::ValueMap<Bridging::VlanId, VniOrNone> vlanToVniMap_;
  uint16_t udpPort_ = kDefaultUdpPort;
  uint8_t ttl_ = 64;
  bool controllerClientMode_ = false;
  bool controllerClientL3Mode_ = false;
};

}  // namespace Vxlan
