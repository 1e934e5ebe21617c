// VxlanController::VtepStatusDirV2, VtepStatusV2 and BfdPeerStatusV2: the BFD state
// of the remote VTEPs, per VTI, as the controller agent publishes it.
//
// The directory is keyed by the VTI's interface id in text form ("Vxlan1"). The
// local-to-remote forwarder reads it when a flood list is of type send-to-any: with no
// BFD peer at all for the VTI any candidate will do, otherwise only a peer whose state
// is up (kStateUp) is chosen. A record still at its defaults counts as no record.
#pragma once

#include <cstdint>

#include "platform/core/Attributes.h"
#include "platform/core/String8.h"
#include "platform/types/IpAddr.h"

namespace VxlanController {

#define VXLAN_CONTROLLER_BFD_PEER_STATUS_V2_ATTRS(X) \
  X(VALUE, State, state, uint32_t, {kStateDefault})

class BfdPeerStatusV2 : public Lum::Entity {
 public:
  static constexpr uint32_t kStateUp = 2;
  // What a record holds before the controller has written a state.
  static constexpr uint32_t kStateDefault = 3;
  LUM_ENTITY(VxlanController::BfdPeerStatusV2, Lum::Entity,
             VXLAN_CONTROLLER_BFD_PEER_STATUS_V2_ATTRS)

  explicit BfdPeerStatusV2(Wire::IpAddr peer);
  Wire::IpAddr peer() const { return peer_; }
  bool isUp() const { return state_ == kStateUp; }
  // True while every field is at its default: readers treat such a record as absent.
  bool isDefault() const { return state_ == kStateDefault; }

 private:
  Wire::IpAddr peer_;
};

#define VXLAN_CONTROLLER_VTEP_STATUS_V2_ATTRS(X) \
  X(COLLECTION, BfdPeerStatus, bfdPeerStatus, Wire::IpAddr, BfdPeerStatusV2, peer)

class VtepStatusV2 : public Lum::Entity {
  LUM_ENTITY(VxlanController::VtepStatusV2, Lum::Entity, VXLAN_CONTROLLER_VTEP_STATUS_V2_ATTRS)

  explicit VtepStatusV2(const Lum::Name& name) : Entity(name) {}
};

#define VXLAN_CONTROLLER_VTEP_STATUS_DIR_V2_ATTRS(X) \
  X(COLLECTION, VtepStatusV2, vtepStatusV2, Lum::Name, VtepStatusV2, name)

class VtepStatusDirV2 : public Lum::Entity {
  LUM_ENTITY(VxlanController::VtepStatusDirV2, Lum::Entity,
             VXLAN_CONTROLLER_VTEP_STATUS_DIR_V2_ATTRS)

  explicit VtepStatusDirV2(const Lum::Name& name) : Entity(name) {}
};

}  // namespace VxlanController
