// Vxlan::VtiStatusDir: the directory of VXLAN tunnel interfaces (VTIs), one
// Vxlan::VtiStatus per interface id. The interface agent publishes it; both
// forwarders and virtual ARP keep one state machine per element and follow the
// keyed notifications to create and remove them. The remote-to-local forwarder also
// writes it: it looks up or creates the status of its own VTI with vtiStatusIs().
//
// `value` is a number that the directory carries for its writers; state machines that
// create a status hand it on unchanged, nothing here interprets it.
#pragma once

#include <cstdint>

#include "platform/core/Attributes.h"
#include "platform/status/vxlan/VtiStatus.h"
#include "platform/types/IntfId.h"

namespace Vxlan {

#define VXLAN_VTI_STATUS_DIR_ATTRS(X)   \
  X(VALUE, Value, value, uint32_t, {0}) \
  X(COLLECTION, VtiStatus, vtiStatus, Wire::IntfId, VtiStatus, intfId)

class VtiStatusDir : public Lum::Entity {
  LUM_ENTITY(Vxlan::VtiStatusDir, Lum::Entity, VXLAN_VTI_STATUS_DIR_ATTRS)

  explicit VtiStatusDir(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Vxlan
