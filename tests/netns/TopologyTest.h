// TestSupport::TopologyTest: the fixture of the tests that run the agent host against
// the real kernel. SetUp builds a SwitchTopology and starts the host (skipped without
// root; CI runs as root); a test body runs only with both in place. TearDown removes it
// all and checks that nothing it made is left: no namespace, no counter table, no
// folder, whatever the test did.
#pragma once

#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "agent/VxlanCounterId.h"
#include "tests/netns/SwitchTopology.h"
#include "tests/support/ChildProcess.h"

namespace TestSupport {

class TopologyTest : public ::testing::Test {
 protected:
  static constexpr auto kFrameWait = std::chrono::seconds(3);
  // How long silence must last to count as "nothing", and how long a change may take.
  static constexpr auto kQuietWait = std::chrono::milliseconds(500);
  static constexpr auto kSettleLimit = std::chrono::seconds(5);

  // The topology a test gets; tests that need another one override this.
  virtual SwitchTopologyConfig topologyConfig() const { return {}; }

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "network namespaces need root; CI runs these as root";
    try {
      topo_ = std::make_unique<SwitchTopology>(topologyConfig());
      topo_->startHost();
    } catch (const std::exception& e) {
      FAIL() << "building the topology failed: " << e.what();
    }
  }

  void TearDown() override {
    if (!topo_) return;
    const std::vector<std::string> made = topo_->namespaces();
    const std::string shm = "/dev/shm/vxrelay-" + topo_->agentName() + "-vxlan-counter";
    const std::filesystem::path folder =
        std::filesystem::path(topo_->controlSocket()).parent_path();
    topo_.reset();
    const std::vector<std::string> listed = listNetworkNamespaces();
    for (const std::string& ns : made) {
      EXPECT_EQ(std::find(listed.begin(), listed.end(), ns), listed.end()) << ns << " left";
    }
    EXPECT_FALSE(std::filesystem::exists(shm)) << shm << " left";
    EXPECT_FALSE(std::filesystem::exists(folder)) << folder << " left";
  }

  SwitchTopology& topo() { return *topo_; }

  uint64_t count(Vxlan::VxlanCounterId id) const { return topo_->counters().count(id); }
  // Polls counter `id` until it exceeds `before` (counts are stored after the write
  // they count); its last value.
  uint64_t countAbove(Vxlan::VxlanCounterId id, uint64_t before) const {
    uint64_t now = 0;
    eventually([&] { return (now = count(id)) > before; }, kFrameWait);
    return now;
  }

  // The frame mode under test: the host inherits the suite's VXRELAY_FRAME_MODE.
  static std::string_view frameMode() {
    const char* mode = std::getenv("VXRELAY_FRAME_MODE");
    return mode ? mode : "batch";
  }
  // Whether the first VTI's `direction` reads as the frame mode under test has it: a
  // read per frame in the single mode, else from receive rings.
  void expectReadsAsTheFrameMode(const char* direction) {
    const nlohmann::json shown = topo_->query("interfaces");
    EXPECT_EQ(shown["frameMode"], frameMode());
    EXPECT_EQ(shown["vtis"][0][direction]["reads"], frameMode() == "single" ? "read" : "ring")
        << shown.dump(2);
  }

  nlohmann::json applyVti(const nlohmann::json& attrs) {
    return topo_->apply({{"interface/status/eth/vxlan", {{"vtiStatus", {{"Vxlan1", attrs}}}}}});
  }

  std::unique_ptr<SwitchTopology> topo_;
};

}  // namespace TestSupport
