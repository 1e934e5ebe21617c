// Vxlan::VxlanHwStatusDir and Vxlan::VxlanHwStatus: what the hardware agent reports
// for VXLAN, mounted read-only by this agent.
//
// The directory owns the learned hosts (fdbStatus) and the flood lists (bumStatus),
// both built with it and alive as long as it is, and holds one VxlanHwStatus per
// VTI. Of those the remote-to-local forwarder follows portId, the port id it writes
// into the header of each frame it hands to the switch, and the local send path
// reads cpuSourcePortId; 0xFFFF in either means that no port is known yet.
#pragma once

#include <cstdint>

#include "platform/core/Collection.h"
#include "platform/core/ValueMap.h"
#include "platform/status/vxlan/BumStatus.h"
#include "platform/status/vxlan/FdbStatus.h"
#include "platform/types/HwPortId.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"

namespace Vxlan {

class VxlanHwStatus : public Lum::Entity {
 public:
  enum : int { kPortId = Entity::kAttrEnd, kCpuSourcePortId, kRemoteVtep, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VxlanHwStatus> {
   public:
    virtual void onPortId() {}
    virtual void onCpuSourcePortId() {}
    virtual void onRemoteVtep(Wire::IpAddr) {}
    virtual void onRemoteVtep() {}
  };

  explicit VxlanHwStatus(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

  HwPortId portId() const { return portId_; }
  void portIdIs(HwPortId v) { attrIs<&NotifieeConst::onPortId>(portId_, v, kPortId); }
  HwPortId cpuSourcePortId() const { return cpuSourcePortId_; }
  void cpuSourcePortIdIs(HwPortId v) {
    attrIs<&NotifieeConst::onCpuSourcePortId>(cpuSourcePortId_, v, kCpuSourcePortId);
  }

  // The remote VTEPs known for this VTI.
  bool remoteVtep(Wire::IpAddr a) const { return remoteVtep_.contains(a); }
  const Lum::ValueMap<Wire::IpAddr, bool>& remoteVtep() const { return remoteVtep_; }
  void remoteVtepIs(Wire::IpAddr a) {
    if (remoteVtep_.is(a, true)) notify<Lum::keyed(&NotifieeConst::onRemoteVtep)>(kRemoteVtep, a);
  }
  void remoteVtepDel(Wire::IpAddr a) {
    if (remoteVtep_.del(a)) notify<Lum::keyed(&NotifieeConst::onRemoteVtep)>(kRemoteVtep, a);
  }

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Wire::IntfId intfId_;
  HwPortId portId_;
  HwPortId cpuSourcePortId_;
  Lum::ValueMap<Wire::IpAddr, bool> remoteVtep_;
};

class VxlanHwStatusDir : public Lum::Entity {
 public:
  enum : int { kFdbStatus = Entity::kAttrEnd, kVxlanHwStatus, kBumStatus, kAttrEnd };

  // fdbStatus and bumStatus never change: they have no handlers. Their own
  // notifiees see what changes inside them.
  class NotifieeConst : public Lum::NotifieeConst<VxlanHwStatusDir> {
   public:
    virtual void onVxlanHwStatus(const Wire::IntfId&) {}
    virtual void onVxlanHwStatus() {}
  };

  explicit VxlanHwStatusDir(const Lum::Name& name);
  ~VxlanHwStatusDir() override;

  const Lum::Ptr<FdbStatus>& fdbStatus() const { return fdbStatus_; }
  const Lum::Ptr<BumStatus>& bumStatus() const { return bumStatus_; }

  Lum::Ptr<VxlanHwStatus> vxlanHwStatus(const Wire::IntfId& id) const { return vxlanHwStatus_(id); }
  Lum::Ptr<VxlanHwStatus> vxlanHwStatusIs(const Wire::IntfId& id);
  void vxlanHwStatusDel(const Wire::IntfId& id);
  auto vxlanHwStatusIterator() const { return vxlanHwStatus_.iterator(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::Ptr<FdbStatus> fdbStatus_;
  Lum::Collection<VxlanHwStatusDir, VxlanHwStatus, Wire::IntfId, Wire::IntfId> vxlanHwStatus_{
      this, "Vxlan::VxlanHwStatusDir::vxlanHwStatus", {"intfId"}};
  Lum::Ptr<BumStatus> bumStatus_;
};

}  // namespace Vxlan
