// VxlanController::VtepStatusDirV2, VtepStatusV2 and BfdPeerStatusV2: the BFD state
// of the remote VTEPs, per VTI, as the controller agent publishes it.
//
// The directory is keyed by the VTI's interface id in text form. The local-to-remote
// forwarder reads it when a flood list is of type send-to-any: with no BFD peer at
// all for the VTI any candidate will do, otherwise only a peer whose state is up
// (kStateUp) is chosen. A record still at its defaults counts as no record.
#pragma once

#include <cstdint>

#include "platform/core/Collection.h"
#include "platform/core/String8.h"
#include "platform/types/IpAddr.h"

namespace VxlanController {

class BfdPeerStatusV2 : public Lum::Entity {
 public:
  enum : int { kState = Entity::kAttrEnd, kAttrEnd };
  static constexpr uint32_t kStateUp = 2;
  // What a record holds before the controller has written a state.
  static constexpr uint32_t kStateDefault = 3;

  class NotifieeConst : public Lum::NotifieeConst<BfdPeerStatusV2> {
   public:
    virtual void onState() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, BfdPeerStatusV2>;

  explicit BfdPeerStatusV2(Wire::IpAddr peer);
  Wire::IpAddr peer() const { return peer_; }

  uint32_t state() const { return state_; }
  void stateIs(uint32_t v) { attrIs<&NotifieeConst::onState>(state_, v, kState); }
  bool isUp() const { return state_ == kStateUp; }
  // True while every field is at its default: readers treat such a record as absent.
  bool isDefault() const { return state_ == kStateDefault; }

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Wire::IpAddr peer_;
  uint32_t state_ = kStateDefault;
};

class VtepStatusV2 : public Lum::Entity {
 public:
  enum : int { kBfdPeerStatus = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VtepStatusV2> {
   public:
    virtual void onBfdPeerStatus(Wire::IpAddr) {}
    virtual void onBfdPeerStatus() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VtepStatusV2>;

  explicit VtepStatusV2(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<BfdPeerStatusV2> bfdPeerStatus(Wire::IpAddr peer) const { return bfdPeerStatus_(peer); }
  Lum::Ptr<BfdPeerStatusV2> bfdPeerStatusIs(Wire::IpAddr peer);
  void bfdPeerStatusDel(Wire::IpAddr peer);
  auto bfdPeerStatusIterator() const { return bfdPeerStatus_.iterator(); }
  size_t bfdPeerStatusSize() const { return bfdPeerStatus_.size(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<VtepStatusV2, BfdPeerStatusV2, Wire::IpAddr, Wire::IpAddr> bfdPeerStatus_{
      this, "VxlanController::VtepStatusV2::bfdPeerStatus", {"peer"}};
};

class VtepStatusDirV2 : public Lum::Entity {
 public:
  enum : int { kVtepStatusV2 = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VtepStatusDirV2> {
   public:
    virtual void onVtepStatusV2(const Lum::Name&) {}
    virtual void onVtepStatusV2() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VtepStatusDirV2>;

  explicit VtepStatusDirV2(const Lum::Name& name) : Entity(name) {}

  // Keyed by the VTI's interface id in text form ("Vxlan1").
  Lum::Ptr<VtepStatusV2> vtepStatusV2(const Lum::Name& vti) const { return vtepStatusV2_(vti); }
  Lum::Ptr<VtepStatusV2> vtepStatusV2Is(const Lum::Name& vti);
  void vtepStatusV2Del(const Lum::Name& vti);
  auto vtepStatusV2Iterator() const { return vtepStatusV2_.iterator(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<VtepStatusDirV2, VtepStatusV2, Lum::Name, Lum::Name> vtepStatusV2_{
      this, "VxlanController::VtepStatusDirV2::vtepStatusV2", {"name"}};
};

}  // namespace VxlanController
