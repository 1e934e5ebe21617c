// A mountable status directory for the state database tests: a collection of VTI
// statuses (plain, map and read-only attributes underneath), one owned entity and a
// plain attribute, which is every kind of attribute a state document can describe.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/status/vxlan/VtiStatus.h"

namespace StatehubTest {

#define STATEHUB_TEST_SETTINGS_ATTRS(X)     \
  X(VALUE, Enabled, enabled, bool, {false}) \
  X(RO_VALUE, Version, version, uint32_t, {3})

class TunnelSettings : public Lum::Entity {
  LUM_ENTITY(StatehubTest::TunnelSettings, Lum::Entity, STATEHUB_TEST_SETTINGS_ATTRS)
  explicit TunnelSettings(const Lum::Name& name) : Entity(name) {}
};

#define STATEHUB_TEST_VTI_DIR_ATTRS(X)                                        \
  X(VALUE, Label, label, Lum::String8, {})                                    \
  X(COLLECTION, VtiStatus, vtiStatus, Wire::IntfId, Vxlan::VtiStatus, intfId) \
  X(CHILD, Settings, settings, TunnelSettings)

class VtiDir : public Lum::Entity {
  LUM_ENTITY(StatehubTest::VtiDir, Lum::Entity, STATEHUB_TEST_VTI_DIR_ATTRS)
  explicit VtiDir(const Lum::Name& name) : Entity(name) {}
};

}  // namespace StatehubTest
