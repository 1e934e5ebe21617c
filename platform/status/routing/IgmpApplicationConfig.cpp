#include "platform/status/routing/IgmpApplicationConfig.h"

namespace Routing::Igmp::Application {

LUM_ENTITY_TYPE(IntfConfig, ROUTING_IGMP_INTF_CONFIG_ATTRS)
LUM_ENTITY_TYPE(Config, ROUTING_IGMP_CONFIG_ATTRS, .constructor({"name"}, &Lum::newByName<Config>))

}  // namespace Routing::Igmp::Application
