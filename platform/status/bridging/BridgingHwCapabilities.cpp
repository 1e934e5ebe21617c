#include "platform/status/bridging/BridgingHwCapabilities.h"

namespace Bridging {

LUM_ENTITY_TYPE(HwCapabilities, BRIDGING_HW_CAPABILITIES_ATTRS,
                .constructor({"name"}, &Lum::newByName<HwCapabilities>))

}  // namespace Bridging
