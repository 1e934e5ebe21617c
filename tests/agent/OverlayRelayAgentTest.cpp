#include "agent/OverlayRelayAgent.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "platform/loop/ActivityManager.h"
#include "platform/memtab/MemtabMount.h"
#include "platform/os/SysCalls.h"
#include "tests/support/SharedObjects.h"

namespace Vxlan::OverlayRelayAgent {
namespace {

using Sums = std::pair<uint64_t, uint64_t>;

// Keeps the mount groups that an agent asks for.
struct WatchedManager : Statehub::EntityManager {
  std::vector<Lum::Ptr<Statehub::MountGroup>> groups;
  Lum::Ptr<Statehub::MountGroup> getMountGroup(Statehub::Mounter* m) override {
    groups.push_back(EntityManager::getMountGroup(m));
    return groups.back();
  }
};

// Records the descriptor limit the agent asks for, and nothing else.
struct LimitWatch : Lum::SysCalls {
  rlimit asked{};
  int setrlimit(int, const rlimit* l) override {
    asked = *l;
    return 0;
  }
};

class OverlayRelayAgentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("RINGLOG_DISABLE", "", 1);
    const Lum::TypeInfo* type =
        Lum::TypeRegistry::type("Vxlan::OverlayRelayAgent::OverlayRelayAgent");
    ASSERT_NE(type, nullptr);
    agent_ = Lum::ptrCast<OverlayRelayAgent>(type->construct({{"name", name_}}));
    ASSERT_TRUE(agent_);
    agent_->entityManagerIs(em_);
  }
  void TearDown() override {
    agent_ = nullptr;
    ::unsetenv("RINGLOG_DISABLE");
  }
  void start() {
    agent_->doInit();
    for (int i = 0; i < 3; ++i) Lum::eventLoop().runOnce(0);
  }
  void command(const char* id, const char* text) {
    Lum::Ptr<Agent::AgentCommandRequest> r(new Agent::AgentCommandRequest(id));
    r->typeIs("vxlan");
    r->commandIs(text);
    agent_->cliRequestDir()->entityIs(r);
  }
  void fillCounters(uint64_t n) {
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i)
      agent_->vxAgentCounter()->vxlanCounterIs({VxlanCounterId(i), n});
    for (uint16_t i = 0; i < kVarpCounterIds; ++i)
      agent_->vxAgentCounter()->varpCounterIs({VarpCounterId(i), uint32_t(n)});
  }
  // The sums of the vxlan and of the varp table.
  Sums sums() const {
    Sums s{};
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i)
      s.first += agent_->vxAgentCounter()->vxlanCounter(VxlanCounterId(i)).count;
    for (uint16_t i = 0; i < kVarpCounterIds; ++i)
      s.second += agent_->vxAgentCounter()->varpCounter(VarpCounterId(i)).count;
    return s;
  }

  std::string name_ = TestSupport::uniqueAgentName("agent");
  TestSupport::SharedObjectGuard table_{LumMemtab::Mount::objectName(name_, "vxlan/counter")};
  Lum::Ptr<WatchedManager> em_{new WatchedManager};
  Lum::Ptr<OverlayRelayAgent> agent_;
};

// Guards the library's type table: the agent's attributes each reachable by the name
// that names it back, and the types listed in the one order of the table.
TEST_F(OverlayRelayAgentTest, TypeTableOrderAndAttributesByName) {
  const Lum::TypeInfo& type = agent_->fwkType();
  for (int id = OverlayRelayAgent::kIpStatusDir; id < OverlayRelayAgent::kAttrEnd; ++id) {
    const Lum::String8 name = agent_->attributeString(id);
    ASSERT_NE(name, Lum::String8("unknown")) << id;
    EXPECT_EQ(type.attribute(name.view())->id, id) << name;
  }
  const std::vector<std::string> table = {
      "Vxlan::OverlayRelayAgent::OverlayRelayAgent::VxCliCallback",
      "Vxlan::OverlayRelayAgent::OverlayRelayAgent",
      "Vxlan::VirtualArpSm::LumVtiStatusSm",
      "Vxlan::VirtualArpSm::LumVrfStatusSm",
      "Vxlan::ArpReplyReplicationVrfSm::LumIpIntfStatus",
      "Vxlan::ArpReplyReplicationSm::LumVrfStatusSm",
      "Vxlan::ArpSyncMsg",
      "Vxlan::ArpSyncMsgWrapper",
      "Vxlan::VrfInfo",
      "Vxlan::ArpRewritePendingList",
      "Vxlan::VirtualArpSm",
      "Vxlan::ArpReplyReplicationVrfSm",
      "Vxlan::ArpReplyReplicationSm",
      "Vxlan::Local2RemoteForwarderSm::VxStatusSm::IpPortTableSm",
      "Vxlan::Local2RemoteForwarderSm::LumVtiStatusSm",
      "Vxlan::Local2RemoteForwarderSm::VxStatusSm",
      "Vxlan::DevIfindexPair",
      "Vxlan::Local2RemoteForwarderSm",
      "Vxlan::Remote2LocalForwarderSm"};
  std::vector<std::string> listed;
  for (const std::string& name : Lum::TypeRegistry::typeNames()) {
    if (std::find(table.begin(), table.end(), name) != table.end()) listed.push_back(name);
  }
  EXPECT_EQ(listed, table);
}

// Guards doInit and the start: the descriptor limit, epoll, one closed mount group that
// completes only on the loop; then every machine built, the kernel watcher last
// (virtual ARP got none), and the command channel wired to the callback.
TEST_F(OverlayRelayAgentTest, InitMountsThenMountsCompleteBuildsTheMachines) {
  LimitWatch sys;
  {
    Lum::ScopedSysCalls scope(sys);
    agent_->doInit();
  }
  EXPECT_EQ(std::pair(sys.asked.rlim_cur, sys.asked.rlim_max), std::pair(5120ul, 5120ul));
  EXPECT_TRUE(Lum::ActivityFacility::activityManagerConfig().useEpoll());
  ASSERT_EQ(em_->groups.size(), 1u);
  EXPECT_TRUE(em_->groups[0]->closed());
  EXPECT_FALSE(agent_->mountsComplete()) << "completion must wait for the loop";

  for (int i = 0; i < 3; ++i) Lum::eventLoop().runOnce(0);
  ASSERT_TRUE(agent_->mountsComplete());
  ASSERT_TRUE(agent_->local2RemoteForwarderSm() && agent_->remote2LocalForwarderSm());
  EXPECT_EQ(agent_->local2RemoteForwarderSm()->inputs().l2rVarpIpMacTableCol.ptr(),
            agent_->l2rVarpIpMacTableCol());
  EXPECT_EQ(agent_->local2RemoteForwarderSm()->inputs().ipStatusDir.ptr(),
            agent_->ipStatusDir().ptr());
  EXPECT_EQ(agent_->remote2LocalForwarderSm()->vniToVlanMaps().ptr(), agent_->vniToVlanMaps());
  ASSERT_TRUE(agent_->virtualArpSm());
  EXPECT_FALSE(agent_->virtualArpSm()->inputs().kernelNetworkInfoManager);
  EXPECT_TRUE(agent_->arpReplyReplicationSm());
  ASSERT_TRUE(agent_->kernelNetworkInfoManager());
  EXPECT_EQ(agent_->cliRequestDirSm()->agentCommandCallback().ptr(), agent_->vxCliCallback());
  // References read through the generic interface as the path of what they point at.
  const Lum::GenericRef generic(Lum::Ptr<Lum::Entity>(agent_.ptr()));
  EXPECT_EQ(generic.attribute("vtiStatusDir"), agent_->vtiStatusDir()->uriPath());
}

// Guards the failed start: a mount group that fails leaves the agent without any
// state machine and with mountsComplete false.
TEST_F(OverlayRelayAgentTest, FailedMountBuildsNothing) {
  Lum::Ptr<Statehub::MountGroup> other = em_->EntityManager::getMountGroup(nullptr);
  other->doMount("r", "Lum::Dir", "mlag/status");  // taken by another type
  other->doClose(false, "", 0.0);
  Lum::eventLoop().runOnce(0);
  Statehub::MountStatus seen = Statehub::mountUnknown_;
  em_->mountStatusObserverIs([&](Statehub::MountStatus s, const std::string&) { seen = s; });
  start();
  EXPECT_EQ(seen, Statehub::mountFailed_);
  EXPECT_FALSE(agent_->mountsComplete());
  EXPECT_FALSE(agent_->local2RemoteForwarderSm() || agent_->remote2LocalForwarderSm() ||
               agent_->virtualArpSm() || agent_->vxAgentCounter() ||
               agent_->kernelNetworkInfoManager());
}

// Guards the commands: the exact texts only, each clearing every id of its table and
// no other; after doCleanup a command finds no machine and changes nothing.
TEST_F(OverlayRelayAgentTest, CommandsClearTheirTableOnly) {
  start();
  fillCounters(7);
  command("1", "clear vxlan counters software ");
  command("2", "Clear vxlan counters software");
  command("3", "clearvarpctr");
  EXPECT_EQ(sums(), (Sums{7u * kVxlanCounterIds, 7u * kVarpCounterIds}));
  command("4", "clear vxlan counters software");
  EXPECT_EQ(sums(), (Sums{0, 7u * kVarpCounterIds}));
  command("5", "clearVarpCtr");
  EXPECT_EQ(sums(), (Sums{0, 0}));

  fillCounters(3);
  Lum::GenericRef(Lum::Ptr<Lum::Entity>(agent_)).invoke("doCleanup");
  EXPECT_FALSE(agent_->local2RemoteForwarderSm());
  EXPECT_FALSE(agent_->virtualArpSm() || agent_->arpReplyReplicationSm());
  ASSERT_TRUE(agent_->vxCliCallback());
  command("6", "clear vxlan counters software");
  command("7", "clearVarpCtr");
  EXPECT_EQ(sums(), (Sums{3u * kVxlanCounterIds, 3u * kVarpCounterIds}));
}

}  // namespace
}  // namespace Vxlan::OverlayRelayAgent
