// Vxlan::FdbStatus and Vxlan::LearnedHost: the hosts that the hardware agent has
// learned behind remote VTEPs, keyed by MAC and VLAN.
//
// The hardware agent writes it; the local-to-remote forwarder and the ARP reply path
// read it to send known unicast straight to one VTEP. An unknown host has no
// element; a host whose VTEP is not known yet has remoteVtepAddr 0.0.0.0.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/status/vxlan/MacVlanPair.h"
#include "platform/types/IpAddr.h"

namespace Vxlan {

#define VXLAN_LEARNED_HOST_ATTRS(X) X(VALUE, RemoteVtepAddr, remoteVtepAddr, Wire::IpAddr, {})

class LearnedHost : public Lum::Entity {
  LUM_ENTITY(Vxlan::LearnedHost, Lum::Entity, VXLAN_LEARNED_HOST_ATTRS)

  explicit LearnedHost(const MacVlanPair& key);
  const MacVlanPair& macVlan() const { return macVlan_; }

 private:
  MacVlanPair macVlan_;
};

#define VXLAN_FDB_STATUS_ATTRS(X) \
  X(COLLECTION, LearnedHost, learnedHost, MacVlanPair, LearnedHost, macVlan)

class FdbStatus : public Lum::Entity {
  LUM_ENTITY(Vxlan::FdbStatus, Lum::Entity, VXLAN_FDB_STATUS_ATTRS)

  explicit FdbStatus(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Vxlan
