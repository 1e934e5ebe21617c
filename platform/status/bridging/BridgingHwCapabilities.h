// Bridging::HwCapabilities: what the forwarding hardware can do, as the platform
// agent publishes it at "bridging/hwcapabilities". This agent reads one capability:
// whether decapsulated frames go to the local ports through the raw transmit device
// ("txraw", true) or through the fabric device ("fabric", false); the frame layout
// written to the local socket differs between the two.
#pragma once

#include "platform/core/Attributes.h"

namespace Bridging {

#define BRIDGING_HW_CAPABILITIES_ATTRS(X) \
  X(VALUE, VxlanTxRawSupported, vxlanTxRawSupported, bool, {false})

class HwCapabilities : public Lum::Entity {
  LUM_ENTITY(Bridging::HwCapabilities, Lum::Entity, BRIDGING_HW_CAPABILITIES_ATTRS)

  explicit HwCapabilities(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Bridging
