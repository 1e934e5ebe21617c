// Vxlan::ArpRewritePendingList: the MACs that asked for one address in one VNI while
// their requests left this switch under the virtual router MAC.
//
// A request from a host that the controller's tables know under another MAC is sent
// on with the virtual MAC as its source, so its reply comes back to that MAC; the list
// remembers the real MACs that asked (reqMacAddr) for the reply to be fanned out to
// them. A list lives `timeLeft` seconds, counted down by the review of its owner,
// VirtualArpSm, or until its reply comes.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/EthAddr.h"
#include "platform/types/VniIpPair.h"

namespace Vxlan {

#define VXLAN_ARP_REWRITE_PENDING_LIST_ATTRS(X) \
  X(SET, ReqMacAddr, reqMacAddr, Wire::EthAddr) \
  X(VALUE, TimeLeft, timeLeft, double, {kDefaultTimeLeft})

class ArpRewritePendingList : public Lum::Entity {
 public:
  static constexpr double kDefaultTimeLeft = 5.0;

  LUM_ENTITY(Vxlan::ArpRewritePendingList, Lum::Entity, VXLAN_ARP_REWRITE_PENDING_LIST_ATTRS)

  explicit ArpRewritePendingList(const VniIpPairV2& key);
  const VniIpPairV2& vniIp() const { return vniIp_; }
  void timeLeftDec(double amount) { timeLeftIs(timeLeft() - amount); }

 private:
  VniIpPairV2 vniIp_;
};

}  // namespace Vxlan
