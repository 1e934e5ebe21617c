// Vxlan::BumStatus and Vxlan::BumVtepList: where the hardware agent floods broadcast,
// unknown unicast and multicast (BUM) traffic.
//
// In multicast replication (bumReplicationMode 1) a VLAN floods to its group in
// bumMcastGrp; in any other mode frames are copied to each VTEP of a flood list,
// looked up by (MAC, VLAN): the frame's own group MAC, 01:00:00:00:00:00 for all
// unknown multicast of the VLAN, and 00:00:00:00:00:00 for everything else. A list of
// type send-to-any (listType 1) names candidates of which one VTEP gets the frame.
// The hardware agent writes it; the agent hands it to all state machines as
// vxBumStatus, and the forwarders follow bumMcastGrp and bumReplicationMode.
#pragma once

#include <cstdint>

#include "platform/core/Collection.h"
#include "platform/core/ValueMap.h"
#include "platform/status/vxlan/MacVlanPair.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VlanId.h"

namespace Vxlan {

class BumVtepList : public Lum::Entity {
 public:
  enum : int { kRemoteVtepAddr = Entity::kAttrEnd, kListType, kAttrEnd };
  static constexpr uint32_t kListTypeSendToAny = 1;

  class NotifieeConst : public Lum::NotifieeConst<BumVtepList> {
   public:
    virtual void onRemoteVtepAddr(Wire::IpAddr) {}
    virtual void onRemoteVtepAddr() {}
    virtual void onListType() {}
  };

  explicit BumVtepList(const MacVlanPair& key);
  const MacVlanPair& macVlan() const { return macVlan_; }

  // The VTEPs of the list, in address order; the order is stable between changes,
  // which is what a send-to-any choice relies on.
  bool remoteVtepAddr(Wire::IpAddr a) const { return remoteVtepAddr_.contains(a); }
  const Lum::ValueMap<Wire::IpAddr, bool>& remoteVtepAddr() const { return remoteVtepAddr_; }
  size_t remoteVtepAddrSize() const { return remoteVtepAddr_.size(); }
  void remoteVtepAddrIs(Wire::IpAddr a) {
    if (remoteVtepAddr_.is(a, true)) {
      notify<Lum::keyed(&NotifieeConst::onRemoteVtepAddr)>(kRemoteVtepAddr, a);
    }
  }
  void remoteVtepAddrDel(Wire::IpAddr a) {
    if (remoteVtepAddr_.del(a)) {
      notify<Lum::keyed(&NotifieeConst::onRemoteVtepAddr)>(kRemoteVtepAddr, a);
    }
  }

  uint32_t listType() const { return listType_; }
  void listTypeIs(uint32_t v) { attrIs<&NotifieeConst::onListType>(listType_, v, kListType); }
  bool isSendToAny() const { return listType_ == kListTypeSendToAny; }

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  MacVlanPair macVlan_;
  Lum::ValueMap<Wire::IpAddr, bool> remoteVtepAddr_;
  uint32_t listType_ = 0;
};

class BumStatus : public Lum::Entity {
 public:
  enum : int { kBumReplicationMode = Entity::kAttrEnd, kBumMcastGrp, kBumVtepList, kAttrEnd };
  static constexpr uint32_t kMulticastReplication = 1;

  class NotifieeConst : public Lum::NotifieeConst<BumStatus> {
   public:
    virtual void onBumReplicationMode() {}
    virtual void onBumMcastGrp(Bridging::VlanId) {}
    virtual void onBumMcastGrp() {}
    virtual void onBumVtepList(const MacVlanPair&) {}
    virtual void onBumVtepList() {}
  };

  explicit BumStatus(const Lum::Name& name) : Entity(name) {}

  uint32_t bumReplicationMode() const { return bumReplicationMode_; }
  void bumReplicationModeIs(uint32_t v) {
    attrIs<&NotifieeConst::onBumReplicationMode>(bumReplicationMode_, v, kBumReplicationMode);
  }

  // The group of a VLAN; 0.0.0.0 when the VLAN has none.
  Wire::IpAddr bumMcastGrp(Bridging::VlanId vlan) const { return bumMcastGrp_(vlan); }
  const Lum::ValueMap<Bridging::VlanId, Wire::IpAddr>& bumMcastGrp() const { return bumMcastGrp_; }
  void bumMcastGrpIs(Bridging::VlanId vlan, Wire::IpAddr group) {
    if (bumMcastGrp_.is(vlan, group)) {
      notify<Lum::keyed(&NotifieeConst::onBumMcastGrp)>(kBumMcastGrp, vlan);
    }
  }
  void bumMcastGrpDel(Bridging::VlanId vlan) {
    if (bumMcastGrp_.del(vlan))
      notify<Lum::keyed(&NotifieeConst::onBumMcastGrp)>(kBumMcastGrp, vlan);
  }
  // One whole-map notification, not one per VLAN.
  void bumMcastGrpDelAll() {
    if (!bumMcastGrp_.delAll().empty()) {
      notify<Lum::whole(&NotifieeConst::onBumMcastGrp)>(kBumMcastGrp);
    }
  }

  Lum::Ptr<BumVtepList> bumVtepList(const MacVlanPair& key) const { return bumVtepList_(key); }
  Lum::Ptr<BumVtepList> bumVtepListIs(const MacVlanPair& key);
  void bumVtepListDel(const MacVlanPair& key);
  auto bumVtepListIterator() const { return bumVtepList_.iterator(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  uint32_t bumReplicationMode_ = 0;
  Lum::ValueMap<Bridging::VlanId, Wire::IpAddr> bumMcastGrp_;
  Lum::Collection<BumStatus, BumVtepList, MacVlanPair, MacVlanPair> bumVtepList_{
      this, "Vxlan::BumStatus::bumVtepList", {"macVlan"}};
};

}  // namespace Vxlan
