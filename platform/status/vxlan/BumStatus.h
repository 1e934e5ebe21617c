// Vxlan::BumStatus and Vxlan::BumVtepList: where the hardware agent floods broadcast,
// unknown unicast and multicast (BUM) traffic.
//
// In multicast replication (bumReplicationMode 1) a VLAN floods to its group in
// bumMcastGrp (0.0.0.0 when the VLAN has none); in any other mode frames are copied to
// each VTEP of a flood list, looked up by (MAC, VLAN): the frame's own group MAC,
// 01:00:00:00:00:00 for all unknown multicast of the VLAN, and 00:00:00:00:00:00 for
// everything else. A list of type send-to-any (listType 1) names candidates of which
// one VTEP gets the frame; its VTEPs are in address order, stable between changes,
// which is what a send-to-any choice relies on. The hardware agent writes it; the
// agent hands it to all state machines as vxBumStatus, and the forwarders follow
// bumMcastGrp and bumReplicationMode.
#pragma once

#include <cstdint>

#include "platform/core/Attributes.h"
#include "platform/status/vxlan/MacVlanPair.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VlanId.h"

namespace Vxlan {

#define VXLAN_BUM_VTEP_LIST_ATTRS(X)                   \
  X(SET, RemoteVtepAddr, remoteVtepAddr, Wire::IpAddr) \
  X(VALUE, ListType, listType, uint32_t, {0})

class BumVtepList : public Lum::Entity {
 public:
  static constexpr uint32_t kListTypeSendToAny = 1;
  LUM_ENTITY(Vxlan::BumVtepList, Lum::Entity, VXLAN_BUM_VTEP_LIST_ATTRS)

  explicit BumVtepList(const MacVlanPair& key);
  const MacVlanPair& macVlan() const { return macVlan_; }
  bool isSendToAny() const { return listType_ == kListTypeSendToAny; }

 private:
  MacVlanPair macVlan_;
};

#define VXLAN_BUM_STATUS_ATTRS(X)                                  \
  X(VALUE, BumReplicationMode, bumReplicationMode, uint32_t, {0})  \
  X(MAP, BumMcastGrp, bumMcastGrp, Bridging::VlanId, Wire::IpAddr) \
  X(COLLECTION, BumVtepList, bumVtepList, MacVlanPair, BumVtepList, macVlan)

class BumStatus : public Lum::Entity {
 public:
  static constexpr uint32_t kMulticastReplication = 1;
  LUM_ENTITY(Vxlan::BumStatus, Lum::Entity, VXLAN_BUM_STATUS_ATTRS)

  explicit BumStatus(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Vxlan
