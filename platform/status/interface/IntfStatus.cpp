#include "platform/status/interface/IntfStatus.h"

namespace Interface {

LUM_ENTITY_TYPE(IntfStatus, INTERFACE_INTF_STATUS_ATTRS)

}  // namespace Interface
