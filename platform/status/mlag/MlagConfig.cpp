#include "platform/status/mlag/MlagConfig.h"

namespace Mlag {

LUM_ENTITY_TYPE(Config, MLAG_CONFIG_ATTRS, .constructor({"name"}, &Lum::newByName<Config>))

}  // namespace Mlag
