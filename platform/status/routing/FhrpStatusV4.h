// Routing::Fhrp::StatusV4, VirtualRouterIntfStatusV4 and VirtualRouterStatusV4: the
// IPv4 virtual routers of each interface, as the first-hop-redundancy agent publishes
// them at "routing/fhrp/status".
//
// The layout is interface -> virtual router id -> address -> flag. An address with
// the flag true is a virtual router address of that interface. This agent only reads
// it, and only the shared virtual router (kSharedVirtualRouterVrId): the ARP paths
// answer for the addresses found there. Lookups of a missing interface or router give
// an empty pointer; a missing address reads as false.
#pragma once

#include "platform/core/Collection.h"
#include "platform/core/ValueMap.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VrId.h"

namespace Routing::Fhrp {

// The id under which an interface's shared virtual router addresses appear: one above
// the ids a protocol instance may use.
inline constexpr VrId kSharedVirtualRouterVrId{256};

class VirtualRouterStatusV4 : public Lum::Entity {
 public:
  enum : int { kIpAddrs = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VirtualRouterStatusV4> {
   public:
    virtual void onIpAddrs(Wire::IpAddr) {}
    virtual void onIpAddrs() {}
  };

  explicit VirtualRouterStatusV4(VrId vrId);
  VrId vrId() const { return vrId_; }

  bool ipAddrs(Wire::IpAddr a) const { return ipAddrs_(a); }
  const Lum::ValueMap<Wire::IpAddr, bool>& ipAddrs() const { return ipAddrs_; }
  void ipAddrsIs(Wire::IpAddr a, bool v) {
    if (ipAddrs_.is(a, v)) notify<Lum::keyed(&NotifieeConst::onIpAddrs)>(kIpAddrs, a);
  }
  void ipAddrsDel(Wire::IpAddr a) {
    if (ipAddrs_.del(a)) notify<Lum::keyed(&NotifieeConst::onIpAddrs)>(kIpAddrs, a);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  VrId vrId_;
  Lum::ValueMap<Wire::IpAddr, bool> ipAddrs_;
};

class VirtualRouterIntfStatusV4 : public Lum::Entity {
 public:
  enum : int { kVrStatus = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VirtualRouterIntfStatusV4> {
   public:
    virtual void onVrStatus(VrId) {}
    virtual void onVrStatus() {}
  };

  explicit VirtualRouterIntfStatusV4(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

  Lum::Ptr<VirtualRouterStatusV4> vrStatus(VrId id) const { return vrStatus_(id); }
  // VrId 0 is not a virtual router: it is refused as an empty key.
  Lum::Ptr<VirtualRouterStatusV4> vrStatusIs(VrId id);
  void vrStatusDel(VrId id);
  auto vrStatusIterator() const { return vrStatus_.iterator(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Wire::IntfId intfId_;
  Lum::Collection<VirtualRouterIntfStatusV4, VirtualRouterStatusV4, VrId, VrId> vrStatus_{
      this, "Routing::Fhrp::VirtualRouterIntfStatusV4::vrStatus", {"vrId"}};
};

class StatusV4 : public Lum::Entity {
 public:
  enum : int { kIntfStatus = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<StatusV4> {
   public:
    virtual void onIntfStatus(const Wire::IntfId&) {}
    virtual void onIntfStatus() {}
  };

  explicit StatusV4(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<VirtualRouterIntfStatusV4> intfStatus(const Wire::IntfId& id) const {
    return intfStatus_(id);
  }
  Lum::Ptr<VirtualRouterIntfStatusV4> intfStatusIs(const Wire::IntfId& id);
  void intfStatusDel(const Wire::IntfId& id);
  auto intfStatusIterator() const { return intfStatus_.iterator(); }

  // True when `addr` is flagged as an address of the shared virtual router of `intf`.
  bool isSharedVirtualAddr(const Wire::IntfId& intf, Wire::IpAddr addr) const;

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<StatusV4, VirtualRouterIntfStatusV4, Wire::IntfId, Wire::IntfId> intfStatus_{
      this, "Routing::Fhrp::StatusV4::intfStatus", {"intfId"}};
};

}  // namespace Routing::Fhrp
