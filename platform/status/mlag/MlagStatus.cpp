#include "platform/status/mlag/MlagStatus.h"

namespace Mlag {

LUM_ENTITY_TYPE(Status, MLAG_STATUS_ATTRS, .constructor({"name"}, &Lum::newByName<Status>))

}  // namespace Mlag
