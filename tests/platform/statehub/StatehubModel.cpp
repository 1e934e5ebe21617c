#include "StatehubModel.h"

namespace StatehubTest {

LUM_ENTITY_TYPE(TunnelSettings, STATEHUB_TEST_SETTINGS_ATTRS)
LUM_ENTITY_TYPE(VtiDir, STATEHUB_TEST_VTI_DIR_ATTRS,
                .constructor({"name"}, &Lum::newByName<VtiDir>))

}  // namespace StatehubTest
