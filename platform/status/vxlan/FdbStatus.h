// Vxlan::FdbStatus and Vxlan::LearnedHost: the hosts that the hardware agent has
// learned behind remote VTEPs, keyed by MAC and VLAN.
//
// The hardware agent writes it; the local-to-remote forwarder and the ARP reply path
// read it to send known unicast straight to one VTEP. An unknown host has no
// element; a host whose VTEP is not known yet has remoteVtepAddr 0.0.0.0.
#pragma once

#include "platform/core/Collection.h"
#include "platform/status/vxlan/MacVlanPair.h"
#include "platform/types/IpAddr.h"

namespace Vxlan {

class LearnedHost : public Lum::Entity {
 public:
  enum : int { kRemoteVtepAddr = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<LearnedHost> {
   public:
    virtual void onRemoteVtepAddr() {}
  };

  explicit LearnedHost(const MacVlanPair& key);
  const MacVlanPair& macVlan() const { return macVlan_; }

  Wire::IpAddr remoteVtepAddr() const { return remoteVtepAddr_; }
  void remoteVtepAddrIs(Wire::IpAddr v) {
    attrIs<&NotifieeConst::onRemoteVtepAddr>(remoteVtepAddr_, v, kRemoteVtepAddr);
  }

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  MacVlanPair macVlan_;
  Wire::IpAddr remoteVtepAddr_;
};

class FdbStatus : public Lum::Entity {
 public:
  enum : int { kLearnedHost = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<FdbStatus> {
   public:
    virtual void onLearnedHost(const MacVlanPair&) {}
    virtual void onLearnedHost() {}
  };

  explicit FdbStatus(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<LearnedHost> learnedHost(const MacVlanPair& key) const { return learnedHost_(key); }
  Lum::Ptr<LearnedHost> learnedHostIs(const MacVlanPair& key);
  void learnedHostDel(const MacVlanPair& key);
  auto learnedHostIterator() const { return learnedHost_.iterator(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<FdbStatus, LearnedHost, MacVlanPair, MacVlanPair> learnedHost_{
      this, "Vxlan::FdbStatus::learnedHost", {"macVlan"}};
};

}  // namespace Vxlan
