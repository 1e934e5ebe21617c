#include "platform/status/bridging/BridgingConfig.h"

namespace Bridging {

LUM_ENTITY_TYPE(SwitchIntfConfig, BRIDGING_SWITCH_INTF_CONFIG_ATTRS)
LUM_ENTITY_TYPE(Config, BRIDGING_CONFIG_ATTRS, .constructor({"name"}, &Lum::newByName<Config>))

}  // namespace Bridging
