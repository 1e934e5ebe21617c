// Interface::IntfStatus: the status of one interface as the interface agents publish
// it; the base of the Ethernet and tunnel interface statuses.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/core/Entity.h"
#include "platform/core/String8.h"
#include "platform/types/IntfId.h"

namespace Interface {

enum class IntfOperStatus : uint32_t {
  intfOperUnknown = 0,
  intfOperUp = 1,
  intfOperDown = 2,
  intfOperTesting = 3,
  intfOperDormant = 5,
  intfOperNotPresent = 6,
  intfOperLowerLayerDown = 7,
};
inline std::ostream& operator<<(std::ostream& os, IntfOperStatus s) {
  return os << static_cast<uint32_t>(s);
}

class IntfStatus : public Lum::Entity {
 public:
  enum : int { kDeviceName = Entity::kAttrEnd, kOperStatus, kActive, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<IntfStatus> {
   public:
    virtual void onDeviceName() {}
    virtual void onOperStatus() {}
    virtual void onActive() {}
  };

  // The key: the interface id, which is also the entity's name.
  const Wire::IntfId& intfId() const { return intfId_; }

  const Lum::String8& deviceName() const { return deviceName_; }
  void deviceNameIs(const Lum::String8& v) {
    attrIs<&NotifieeConst::onDeviceName>(deviceName_, v, kDeviceName);
  }
  IntfOperStatus operStatus() const { return operStatus_; }
  void operStatusIs(IntfOperStatus v) {
    attrIs<&NotifieeConst::onOperStatus>(operStatus_, v, kOperStatus);
  }
  bool active() const { return active_; }
  void activeIs(bool v) { attrIs<&NotifieeConst::onActive>(active_, v, kActive); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 protected:
  explicit IntfStatus(const Wire::IntfId& id) : Entity(Lum::Name(id.stringValue())), intfId_(id) {}

 private:
  Wire::IntfId intfId_;
  Lum::String8 deviceName_;
  IntfOperStatus operStatus_ = IntfOperStatus::intfOperUnknown;
  bool active_ = false;
};

}  // namespace Interface
