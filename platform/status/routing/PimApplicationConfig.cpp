#include "platform/status/routing/PimApplicationConfig.h"

namespace Routing::Pim::Application {

LUM_ENTITY_TYPE(Config, ROUTING_PIM_CONFIG_ATTRS, .constructor({"name"}, &Lum::newByName<Config>))

}  // namespace Routing::Pim::Application
