// Interface::IntfStatus: the status of one interface as the interface agents publish
// it; the base of the Ethernet and tunnel interface statuses.
#pragma once

#include <cstdint>

#include "platform/core/Attributes.h"
#include "platform/core/String8.h"
#include "platform/types/IntfId.h"

namespace Interface {

// The interface agents' numbers; 4 is not used. A number without a name is refused.
#define INTERFACE_INTF_OPER_STATUS_VALUES(X) \
  X(intfOperUnknown, 0)                      \
  X(intfOperUp, 1)                           \
  X(intfOperDown, 2)                         \
  X(intfOperTesting, 3)                      \
  X(intfOperDormant, 5)                      \
  X(intfOperNotPresent, 6)                   \
  X(intfOperLowerLayerDown, 7)
LUM_ENUM(IntfOperStatus, uint32_t, INTERFACE_INTF_OPER_STATUS_VALUES)

#define INTERFACE_INTF_STATUS_ATTRS(X)                                                \
  X(VALUE, DeviceName, deviceName, Lum::String8, {})                                  \
  X(VALUE, OperStatus, operStatus, IntfOperStatus, {IntfOperStatus::intfOperUnknown}) \
  X(VALUE, Active, active, bool, {false})

class IntfStatus : public Lum::Entity {
  LUM_ENTITY(Interface::IntfStatus, Lum::Entity, INTERFACE_INTF_STATUS_ATTRS)

  // The key: the interface id, which is also the entity's name.
  const Wire::IntfId& intfId() const { return intfId_; }

 protected:
  explicit IntfStatus(const Wire::IntfId& id) : Entity(Lum::Name(id.stringValue())), intfId_(id) {}

 private:
  Wire::IntfId intfId_;
};

}  // namespace Interface
