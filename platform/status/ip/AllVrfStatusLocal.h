// Ip::AllVrfStatusLocal and Ip::VrfStatusLocal: the VRFs of this cell with their state
// and network namespace, as the IP agent publishes them at the cell's
// "ip/vrf/status/local". Virtual ARP and ARP reply replication keep a reactor per VRF
// and set up their per-VRF sockets, inside the VRF's namespace, once it is active.
// This agent only reads it.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/core/Attributes.h"
#include "platform/types/NamespaceName.h"
#include "platform/types/VrfName.h"

namespace Ip {

// Only active (1) opens a VRF's sockets; every other number is some stage of coming
// up or going away in the IP agent's model. The enumeration is open: the text form is
// the number, and numbers without a name here pass unchanged.
enum class VrfState : uint32_t {
  vrfInactive = 0,
  vrfActive = 1,
};
inline std::ostream& operator<<(std::ostream& os, VrfState s) {
  return os << static_cast<uint32_t>(s);
}

// The namespace is expected not to be empty once the VRF is active.
#define IP_VRF_STATUS_LOCAL_ATTRS(X)                        \
  X(VALUE, State, state, VrfState, {VrfState::vrfInactive}) \
  X(VALUE, NetworkNamespace, networkNamespace, Wire::NamespaceName, {})

class VrfStatusLocal : public Lum::Entity {
  LUM_ENTITY(Ip::VrfStatusLocal, Lum::Entity, IP_VRF_STATUS_LOCAL_ATTRS)

  explicit VrfStatusLocal(const L3::VrfName& vrf) : Entity(Lum::Name(vrf.value())), vrf_(vrf) {}
  const L3::VrfName& vrf() const { return vrf_; }

 private:
  L3::VrfName vrf_;
};

#define IP_ALL_VRF_STATUS_LOCAL_ATTRS(X) X(COLLECTION, Vrf, vrf, L3::VrfName, VrfStatusLocal, vrf)

class AllVrfStatusLocal : public Lum::Entity {
  LUM_ENTITY(Ip::AllVrfStatusLocal, Lum::Entity, IP_ALL_VRF_STATUS_LOCAL_ATTRS)

  explicit AllVrfStatusLocal(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Ip
