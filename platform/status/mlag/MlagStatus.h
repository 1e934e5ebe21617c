// Mlag::Status: the state of the MLAG pair as the MLAG agent publishes it, mounted
// read-only. Every state machine that knows MLAG follows mlagState and peerLinkIntf:
// the forwarders decide from them whether this switch joins multicast groups and
// which bridge MAC it answers with, virtual ARP whether to sync ARP entries to the
// peer over the peer link, and the replication filter which MACs it captures.
// peerLinkIntf is empty while there is no peer link; peerMacAddr, the peer's bridge
// MAC, all zero while unknown.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/core/Attributes.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"

namespace Mlag {

// The MLAG agent's state numbers. Only these are told apart here; the MLAG agent
// publishes others (2, for one), which read as "not active", so the enumeration is
// open: its text is the number, and any number of its width is taken.
enum class MlagState : uint32_t {
  mlagStateDisabled = 0,
  mlagStateInactive = 1,
  // Active, and this switch is the primary: it joins the flood groups.
  mlagStatePrimary = 3,
  // Active, and the peer is the primary: its bridge MAC answers for both.
  mlagStateSecondary = 4,
};
inline std::ostream& operator<<(std::ostream& os, MlagState s) {
  return os << static_cast<uint32_t>(s);
}
// Active means a peer is there, whichever of the two is primary.
constexpr bool isMlagActive(MlagState s) {
  return s == MlagState::mlagStatePrimary || s == MlagState::mlagStateSecondary;
}

#define MLAG_STATUS_ATTRS(X)                                                \
  X(VALUE, MlagState, mlagState, MlagState, {MlagState::mlagStateDisabled}) \
  X(VALUE, PeerLinkIntf, peerLinkIntf, Wire::IntfId, {})                    \
  X(VALUE, PeerMacAddr, peerMacAddr, Wire::EthAddr, {})

class Status : public Lum::Entity {
  LUM_ENTITY(Mlag::Status, Lum::Entity, MLAG_STATUS_ATTRS)

  explicit Status(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Mlag
