// Vxlan::VniToVlanMaps and Vxlan::VniToVlanMap: the VNI to VLAN table of each VTI.
//
// Kept in the agent's memory only (the agent creates the directory "vniToVlanMaps").
// The remote-to-local forwarder is its only writer; virtual ARP reads it. A VNI
// without a VLAN reads as VLAN 0 (none).
#pragma once

#include "platform/core/Collection.h"
#include "platform/core/ValueMap.h"
#include "platform/types/IntfId.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"

namespace Vxlan {

class VniToVlanMap : public Lum::Entity {
 public:
  enum : int { kVniToVlanMap = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VniToVlanMap> {
   public:
    virtual void onVniToVlanMap(Vni) {}
    virtual void onVniToVlanMap() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VniToVlanMap>;

  explicit VniToVlanMap(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

  // On the frame path: one lookup per frame.
  Bridging::VlanIdOrNone vniToVlanMap(Vni vni) const { return map_(vni); }
  const Lum::ValueMap<Vni, Bridging::VlanIdOrNone>& vniToVlanMap() const { return map_; }
  void vniToVlanMapIs(Vni vni, Bridging::VlanIdOrNone vlan) {
    if (map_.is(vni, vlan)) notify<Lum::keyed(&NotifieeConst::onVniToVlanMap)>(kVniToVlanMap, vni);
  }
  void vniToVlanMapDel(Vni vni) {
    if (map_.del(vni)) notify<Lum::keyed(&NotifieeConst::onVniToVlanMap)>(kVniToVlanMap, vni);
  }
  void vniToVlanMapDelAll() {
    if (map_.delAll().empty()) return;
    notify<Lum::whole(&NotifieeConst::onVniToVlanMap)>(kVniToVlanMap);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Wire::IntfId intfId_;
  Lum::ValueMap<Vni, Bridging::VlanIdOrNone> map_;
};

class VniToVlanMaps : public Lum::Entity {
 public:
  enum : int { kVtiVniToVlanMap = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VniToVlanMaps> {
   public:
    virtual void onVtiVniToVlanMap(const Wire::IntfId&) {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VniToVlanMaps>;

  explicit VniToVlanMaps(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<VniToVlanMap> vtiVniToVlanMap(const Wire::IntfId& id) const { return maps_(id); }
  Lum::Ptr<VniToVlanMap> vtiVniToVlanMapIs(const Wire::IntfId& id);
  void vtiVniToVlanMapDel(const Wire::IntfId& id);
  auto vtiVniToVlanMapIterator() const { return maps_.iterator(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<VniToVlanMaps, VniToVlanMap, Wire::IntfId, Wire::IntfId> maps_{
      this, "Vxlan::VniToVlanMaps::vtiVniToVlanMap", {"intfId"}};
};

}  // namespace Vxlan
