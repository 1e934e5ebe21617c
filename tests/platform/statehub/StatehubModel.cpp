#include "StatehubModel.h"

#include <gtest/gtest.h>

namespace StatehubTest {

Statehub::MountStatus mountAll(Statehub::EntityManager& em, Lum::EventLoop& loop,
                               const std::vector<std::array<std::string, 3>>& mounts) {
  RecordingMounter m;
  Lum::Ptr<Statehub::MountGroup> g = em.getMountGroup(&m);
  for (const auto& [mode, type, path] : mounts) g->doMount(mode, type, path);
  g->doClose(false, "", 0);
  loop.runOnce(0);
  EXPECT_EQ(m.calls.size(), 1u) << g->error();
  return m.calls.size() == 1 ? m.calls.front() : Statehub::mountUnknown_;
}

LUM_ENTITY_TYPE(TunnelSettings, STATEHUB_TEST_SETTINGS_ATTRS)
LUM_ENTITY_TYPE(VtiDir, STATEHUB_TEST_VTI_DIR_ATTRS,
                .constructor({"name"}, &Lum::newByName<VtiDir>))

}  // namespace StatehubTest
