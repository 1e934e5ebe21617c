// Mlag::Config: the MLAG configuration, mounted read-only. Virtual ARP reads
// peerAddress, the IPv4 address of the MLAG peer, as the destination of the ARP
// entries it syncs to the peer; 0.0.0.0 while none is configured.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/IpAddr.h"

namespace Mlag {

#define MLAG_CONFIG_ATTRS(X) X(VALUE, PeerAddress, peerAddress, Wire::IpAddr, {})

class Config : public Lum::Entity {
  LUM_ENTITY(Mlag::Config, Lum::Entity, MLAG_CONFIG_ATTRS)

  explicit Config(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Mlag
