#include "DemoModel.h"

namespace Demo {

LUM_ENTITY_TYPE(Link, DEMO_LINK_ATTRS, .constructor({"name"}, &Lum::newByName<Link>))
LUM_ENTITY_TYPE(LinkDir, DEMO_LINK_DIR_ATTRS, .constructor({"name"}, &Lum::newByName<LinkDir>))
LUM_ENTITY_TYPE(Settings, DEMO_SETTINGS_ATTRS, .constructor({"name"}, &Lum::newByName<Settings>))

}  // namespace Demo
