// Ip::AllVrfStatusLocal and Ip::VrfStatusLocal: the VRFs of this cell with their state
// and network namespace, as the IP agent publishes them at the cell's
// "ip/vrf/status/local". Virtual ARP and ARP reply replication keep a reactor per VRF
// and set up their per-VRF sockets, inside the VRF's namespace, once it is active.
// This agent only reads it.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/core/Collection.h"
#include "platform/types/NamespaceName.h"
#include "platform/types/VrfName.h"

namespace Ip {

// Only active (1) opens a VRF's sockets; every other number is some stage of coming
// up or going away. The text form is the number, so unnamed values pass unchanged.
enum class VrfState : uint32_t {
  vrfInactive = 0,
  vrfActive = 1,
};
inline std::ostream& operator<<(std::ostream& os, VrfState s) {
  return os << static_cast<uint32_t>(s);
}

class VrfStatusLocal : public Lum::Entity {
 public:
  enum : int { kState = Entity::kAttrEnd, kNetworkNamespace, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VrfStatusLocal> {
   public:
    virtual void onState() {}
    virtual void onNetworkNamespace() {}
  };

  explicit VrfStatusLocal(const L3::VrfName& vrf) : Entity(Lum::Name(vrf.value())), vrf_(vrf) {}
  const L3::VrfName& vrf() const { return vrf_; }

  VrfState state() const { return state_; }
  void stateIs(VrfState v) { attrIs<&NotifieeConst::onState>(state_, v, kState); }
  // Expected not to be empty once the VRF is active.
  const Wire::NamespaceName& networkNamespace() const { return networkNamespace_; }
  void networkNamespaceIs(const Wire::NamespaceName& v) {
    attrIs<&NotifieeConst::onNetworkNamespace>(networkNamespace_, v, kNetworkNamespace);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  L3::VrfName vrf_;
  VrfState state_ = VrfState::vrfInactive;
  Wire::NamespaceName networkNamespace_;
};

class AllVrfStatusLocal : public Lum::Entity {
 public:
  enum : int { kVrf = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<AllVrfStatusLocal> {
   public:
    virtual void onVrf(const L3::VrfName&) {}
    virtual void onVrf() {}
  };

  explicit AllVrfStatusLocal(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<VrfStatusLocal> vrf(const L3::VrfName& name) const { return vrf_(name); }
  Lum::Ptr<VrfStatusLocal> vrfIs(const L3::VrfName& name);
  void vrfDel(const L3::VrfName& name);
  auto vrfIterator() const { return vrf_.iterator(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<AllVrfStatusLocal, VrfStatusLocal, L3::VrfName, L3::VrfName> vrf_{
      this, "Ip::AllVrfStatusLocal::vrf", {"vrf"}};
};

}  // namespace Ip
