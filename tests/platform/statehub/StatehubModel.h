// A mountable status directory for the state database tests: a collection of VTI
// statuses (plain, map and read-only attributes underneath), one owned entity and a
// plain attribute, which is every kind of attribute a state document can describe.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "platform/core/Attributes.h"
#include "platform/statehub/EntityManager.h"
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

// Records the outcomes a mount group delivers.
struct RecordingMounter : Statehub::Mounter {
  std::vector<Statehub::MountStatus> calls;
  void doMountsComplete(Statehub::MountStatus s, Statehub::EntityManager&) override {
    calls.push_back(s);
  }
};

// Mounts {mode, type, path} as one group and runs the loop once: the status the group
// completed with, mountUnknown_ (and a failure) when it did not complete exactly once.
Statehub::MountStatus mountAll(Statehub::EntityManager& em, Lum::EventLoop& loop,
                               const std::vector<std::array<std::string, 3>>& mounts);

// Records what a watched VTI status reports: "udpPort <port>", "vlan <id>".
struct VtiWatch : Vxlan::VtiStatus::NotifieeConst {
  std::vector<std::string> seen;
  void onUdpPort() override { seen.push_back("udpPort " + std::to_string(notifier()->udpPort())); }
  void onVlanToVniMap(Bridging::VlanId v) override {
    seen.push_back("vlan " + std::to_string(v.value()));
  }
};

}  // namespace StatehubTest
