// Bridging::HwCapabilities: what the forwarding hardware can do, as the platform
// agent publishes it at "bridging/hwcapabilities". This agent reads one capability:
// whether decapsulated frames go to the local ports through the raw transmit device
// ("txraw", true) or through the fabric device ("fabric", false); the frame layout
// written to the local socket differs between the two.
#pragma once

#include "platform/core/Entity.h"

namespace Bridging {

class HwCapabilities : public Lum::Entity {
 public:
  enum : int { kVxlanTxRawSupported = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<HwCapabilities> {
   public:
    virtual void onVxlanTxRawSupported() {}
  };

  explicit HwCapabilities(const Lum::Name& name) : Entity(name) {}

  bool vxlanTxRawSupported() const { return vxlanTxRawSupported_; }
  void vxlanTxRawSupportedIs(bool v) {
    attrIs<&NotifieeConst::onVxlanTxRawSupported>(vxlanTxRawSupported_, v, kVxlanTxRawSupported);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  bool vxlanTxRawSupported_ = false;
};

}  // namespace Bridging
