// Ip::Status, Ip::VrfIpIntfStatus and Ip::IpIntfStatus: the IPv4 addresses active on
// the IP interfaces, as the IP agent publishes them at "ip/status".
//
// The same interface status appears twice: under `ipIntfStatus` for every interface,
// and under `vrfIpIntfStatus` grouped by VRF. The ARP paths look interfaces up in the
// flat collection (primary, secondary and virtual address); the replication managers
// watch the per-VRF one. This agent only reads it.
#pragma once

#include "platform/core/Collection.h"
#include "platform/core/ValueMap.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VrfName.h"

namespace Ip {

class IpIntfStatus : public Lum::Entity {
 public:
  enum : int {
    kActiveAddrWithMask = Entity::kAttrEnd,
    kActiveSecondaryWithMask,
    kActiveVirtualAddrWithMask,
    kVrf,
    kAttrEnd
  };

  class NotifieeConst : public Lum::NotifieeConst<IpIntfStatus> {
   public:
    virtual void onActiveAddrWithMask() {}
    virtual void onActiveSecondaryWithMask(const Wire::IpAddrWithMask&) {}
    virtual void onActiveSecondaryWithMask() {}
    virtual void onActiveVirtualAddrWithMask() {}
    virtual void onVrf() {}
  };

  explicit IpIntfStatus(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

  // The primary address.
  const Wire::IpAddrWithMask& activeAddrWithMask() const { return activeAddrWithMask_; }
  void activeAddrWithMaskIs(const Wire::IpAddrWithMask& v) {
    attrIs<&NotifieeConst::onActiveAddrWithMask>(activeAddrWithMask_, v, kActiveAddrWithMask);
  }

  // The secondary addresses, a set.
  bool activeSecondaryWithMask(const Wire::IpAddrWithMask& a) const {
    return activeSecondaryWithMask_.contains(a);
  }
  const Lum::ValueMap<Wire::IpAddrWithMask, bool>& activeSecondaryWithMask() const {
    return activeSecondaryWithMask_;
  }
  void activeSecondaryWithMaskIs(const Wire::IpAddrWithMask& a) {
    if (activeSecondaryWithMask_.is(a, true)) {
      notify<Lum::keyed(&NotifieeConst::onActiveSecondaryWithMask)>(kActiveSecondaryWithMask, a);
    }
  }
  void activeSecondaryWithMaskDel(const Wire::IpAddrWithMask& a) {
    if (activeSecondaryWithMask_.del(a)) {
      notify<Lum::keyed(&NotifieeConst::onActiveSecondaryWithMask)>(kActiveSecondaryWithMask, a);
    }
  }

  // The virtual router address of the interface; address 0.0.0.0 means none.
  const Wire::IpAddrWithMask& activeVirtualAddrWithMask() const {
    return activeVirtualAddrWithMask_;
  }
  void activeVirtualAddrWithMaskIs(const Wire::IpAddrWithMask& v) {
    attrIs<&NotifieeConst::onActiveVirtualAddrWithMask>(activeVirtualAddrWithMask_, v,
                                                        kActiveVirtualAddrWithMask);
  }

  // The VRF the interface is configured in; empty for the default VRF. Virtual ARP
  // finds the VRF of a VLAN through its "Vlan<n>" interface here.
  const L3::VrfName& vrf() const { return vrf_; }
  void vrfIs(const L3::VrfName& v) { attrIs<&NotifieeConst::onVrf>(vrf_, v, kVrf); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Wire::IntfId intfId_;
  Wire::IpAddrWithMask activeAddrWithMask_;
  Lum::ValueMap<Wire::IpAddrWithMask, bool> activeSecondaryWithMask_;
  Wire::IpAddrWithMask activeVirtualAddrWithMask_;
  L3::VrfName vrf_;
};

// The IP interfaces of one VRF.
class VrfIpIntfStatus : public Lum::Entity {
 public:
  enum : int { kIpIntfStatus = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VrfIpIntfStatus> {
   public:
    virtual void onIpIntfStatus(const Wire::IntfId&) {}
    virtual void onIpIntfStatus() {}
  };

  explicit VrfIpIntfStatus(const L3::VrfName& vrf) : Entity(Lum::Name(vrf.value())), vrf_(vrf) {}
  const L3::VrfName& vrf() const { return vrf_; }

  Lum::Ptr<IpIntfStatus> ipIntfStatus(const Wire::IntfId& id) const { return ipIntfStatus_(id); }
  Lum::Ptr<IpIntfStatus> ipIntfStatusIs(const Wire::IntfId& id);
  void ipIntfStatusDel(const Wire::IntfId& id);
  auto ipIntfStatusIterator() const { return ipIntfStatus_.iterator(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  L3::VrfName vrf_;
  Lum::Collection<VrfIpIntfStatus, IpIntfStatus, Wire::IntfId, Wire::IntfId> ipIntfStatus_{
      this, "Ip::VrfIpIntfStatus::ipIntfStatus", {"intfId"}};
};

class Status : public Lum::Entity {
 public:
  enum : int { kIpIntfStatus = Entity::kAttrEnd, kVrfIpIntfStatus, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Status> {
   public:
    virtual void onIpIntfStatus(const Wire::IntfId&) {}
    virtual void onIpIntfStatus() {}
    virtual void onVrfIpIntfStatus(const L3::VrfName&) {}
    virtual void onVrfIpIntfStatus() {}
  };

  explicit Status(const Lum::Name& name) : Entity(name) {}

  // The name under which the default VRF appears in `vrfIpIntfStatus`.
  static L3::VrfName defaultVrf() { return L3::VrfName("default"); }

  Lum::Ptr<IpIntfStatus> ipIntfStatus(const Wire::IntfId& id) const { return ipIntfStatus_(id); }
  Lum::Ptr<IpIntfStatus> ipIntfStatusIs(const Wire::IntfId& id);
  void ipIntfStatusDel(const Wire::IntfId& id);
  auto ipIntfStatusIterator() const { return ipIntfStatus_.iterator(); }

  Lum::Ptr<VrfIpIntfStatus> vrfIpIntfStatus(const L3::VrfName& vrf) const {
    return vrfIpIntfStatus_(vrf);
  }
  Lum::Ptr<VrfIpIntfStatus> vrfIpIntfStatusIs(const L3::VrfName& vrf);
  void vrfIpIntfStatusDel(const L3::VrfName& vrf);
  auto vrfIpIntfStatusIterator() const { return vrfIpIntfStatus_.iterator(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<Status, IpIntfStatus, Wire::IntfId, Wire::IntfId> ipIntfStatus_{
      this, "Ip::Status::ipIntfStatus", {"intfId"}};
  Lum::Collection<Status, VrfIpIntfStatus, L3::VrfName, L3::VrfName> vrfIpIntfStatus_{
      this, "Ip::Status::vrfIpIntfStatus", {"vrf"}};
};

}  // namespace Ip
