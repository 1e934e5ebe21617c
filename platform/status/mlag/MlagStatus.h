// Mlag::Status: the state of the MLAG pair as the MLAG agent publishes it, mounted
// read-only. Every state machine that knows MLAG follows mlagState and peerLinkIntf:
// the forwarders decide from them whether this switch joins multicast groups and
// which bridge MAC it answers with, virtual ARP whether to sync ARP entries to the
// peer over the peer link, and the replication filter which MACs it captures.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/core/Entity.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"

namespace Mlag {

// The MLAG agent's state numbers. Only these are told apart here; the MLAG agent
// may publish others (2, for one), which read as "not active". The generic text
// form is the number.
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

class Status : public Lum::Entity {
 public:
  enum : int { kMlagState = Entity::kAttrEnd, kPeerLinkIntf, kPeerMacAddr, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Status> {
   public:
    virtual void onMlagState() {}
    virtual void onPeerLinkIntf() {}
    virtual void onPeerMacAddr() {}
  };

  explicit Status(const Lum::Name& name) : Entity(name) {}

  MlagState mlagState() const { return mlagState_; }
  void mlagStateIs(MlagState v) { attrIs<&NotifieeConst::onMlagState>(mlagState_, v, kMlagState); }
  // Empty while there is no peer link.
  const Wire::IntfId& peerLinkIntf() const { return peerLinkIntf_; }
  void peerLinkIntfIs(const Wire::IntfId& v) {
    attrIs<&NotifieeConst::onPeerLinkIntf>(peerLinkIntf_, v, kPeerLinkIntf);
  }
  // The peer's bridge MAC; all zero while unknown.
  const Wire::EthAddr& peerMacAddr() const { return peerMacAddr_; }
  void peerMacAddrIs(const Wire::EthAddr& v) {
    attrIs<&NotifieeConst::onPeerMacAddr>(peerMacAddr_, v, kPeerMacAddr);
  }

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  MlagState mlagState_ = MlagState::mlagStateDisabled;
  Wire::IntfId peerLinkIntf_;
  Wire::EthAddr peerMacAddr_;
};

}  // namespace Mlag
