// Routing::Fhrp::VirtualRouterMacStatus: the MAC address shared by the virtual routers
// of the switch, as the first-hop-redundancy agent publishes it at
// "routing/fhrp/vrMacStatus". The replication managers watch it; the ARP paths trace
// it. All zero while no shared MAC is set.
#pragma once

#include "platform/core/Entity.h"
#include "platform/types/EthAddr.h"

namespace Routing::Fhrp {

class VirtualRouterMacStatus : public Lum::Entity {
 public:
  enum : int { kVarpVirtualMac = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VirtualRouterMacStatus> {
   public:
    virtual void onVarpVirtualMac() {}
  };

  explicit VirtualRouterMacStatus(const Lum::Name& name) : Entity(name) {}

  const Wire::EthAddr& varpVirtualMac() const { return varpVirtualMac_; }
  void varpVirtualMacIs(const Wire::EthAddr& v) {
    attrIs<&NotifieeConst::onVarpVirtualMac>(varpVirtualMac_, v, kVarpVirtualMac);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Wire::EthAddr varpVirtualMac_;
};

}  // namespace Routing::Fhrp
