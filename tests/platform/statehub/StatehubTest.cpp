#include <gtest/gtest.h>

#include "StatehubModel.h"
#include "platform/core/Dir.h"
#include "platform/statehub/Cell.h"
#include "platform/statehub/DocumentText.h"
#include "platform/statehub/EntityManager.h"
#include "tests/support/Throws.h"

namespace Statehub {
namespace {

using nlohmann::json;
using StatehubTest::RecordingMounter;
using StatehubTest::VtiDir;
using TestSupport::thrownText;

class StatehubTest : public ::testing::Test {
 protected:
  // Mounts `type` read-only at `path`, as a group of its own.
  MountStatus mountAll(const std::string& type, const std::string& path) {
    return ::StatehubTest::mountAll(*em, loop, {{"r", type, path}});
  }
  Lum::Ptr<VtiDir> vtiDir() { return Lum::ptrCast<VtiDir>(em->getEntity(kVti)); }

  static constexpr const char* kVti = "interface/status/eth/vxlan";
  Lum::EventLoop loop;
  Lum::Ptr<EntityManager> em{new EntityManager(loop)};
};

// Guards against completion delivered inside doClose (before the agent is ready for
// it), against entities missing, misnamed or of the wrong type at their paths, against
// a trailing slash making a second, different mount, and against a mount of the path
// by a later group replacing the entity that reactors already watch, or another type
// taking the path over.
TEST_F(StatehubTest, MountGroupCompletesOnTheLoopWithEntitiesAtTheirPaths) {
  RecordingMounter m;
  Lum::Ptr<MountGroup> g = em->getMountGroup(&m);
  g->doMount("r", "StatehubTest::VtiDir", "vxlan/vtiDir/");
  g->doMount("wc", "Lum::Dir", Cell::mountpath("agent/commandRequest/vxlan"));
  g->doMount("r", "StatehubTest::VtiDir", "vxlan/vtiDir");
  g->doClose(true, "", 0);
  EXPECT_TRUE(m.calls.empty());
  EXPECT_EQ(g->status(), mountInProgress_);
  EXPECT_FALSE(em->getEntity("vxlan/vtiDir"));
  EXPECT_THROW(g->doMount("r", "Lum::Dir", "late"), Lum::RangeException);
  g = nullptr;  // the group lives on until its outcome is delivered

  loop.runOnce(0);
  ASSERT_EQ(m.calls, std::vector<MountStatus>{mountSuccess_});
  Lum::Ptr<Lum::Entity> vtis = em->getEntity("vxlan/vtiDir/");
  ASSERT_TRUE(Lum::ptrCast<VtiDir>(vtis));
  EXPECT_TRUE(Lum::ptrCast<Lum::Dir>(em->getEntity(Cell::path("agent/commandRequest/vxlan"))));
  EXPECT_EQ(em->mountPaths().size(), 2u);

  // A later group's mount of the path shares the entity; another type fails.
  ASSERT_EQ(mountAll("StatehubTest::VtiDir", "vxlan/vtiDir"), mountSuccess_);
  EXPECT_EQ(em->getEntity("vxlan/vtiDir"), vtis);
  EXPECT_EQ(mountAll("Lum::Dir", "vxlan/vtiDir/"), mountFailed_);
  EXPECT_EQ(em->getEntity("vxlan/vtiDir"), vtis);
}

// Guards against a failed group leaving part of its mounts behind: an unknown type, a
// type that cannot be built by name, and two types for one path each fail it whole.
TEST_F(StatehubTest, FailingGroupCreatesNothing) {
  for (const auto& bad :
       std::vector<std::pair<std::string, std::string>>{{"No::SuchType", "x/unknown"},
                                                        {"Vxlan::VtiStatus", "x/notBuildable"},
                                                        {"StatehubTest::VtiDir", "x/good"}}) {
    RecordingMounter m;
    Lum::Ptr<MountGroup> g = em->getMountGroup(&m);
    g->doMount("r", "Lum::Dir", "x/good");
    g->doMount("r", bad.first, bad.second);
    g->doClose(false, "", 0);
    loop.runOnce(0);
    EXPECT_EQ(m.calls, std::vector<MountStatus>{mountFailed_}) << bad.first;
    EXPECT_NE(g->error().find(bad.second), std::string::npos) << g->error();
    EXPECT_TRUE(em->mountPaths().empty()) << bad.first;
  }
  // Kept state that the entity refuses when it is finally mounted fails the group too,
  // and the path stays unmounted, so the fault is not silently dropped.
  em->stateIs({{kVti, {{"vtiStatus", {{"Vxlan1", {{"udpPort", 70000}}}}}}}});
  EXPECT_EQ(mountAll("StatehubTest::VtiDir", kVti), mountFailed_);
  EXPECT_FALSE(em->getEntity(kVti));
}

// Guards the paths below a mount: collection keys (also keys with a slash), owned
// entities, and names that lead nowhere; and deletion by null in maps and collections,
// where a delete of something absent is not an error.
TEST_F(StatehubTest, EntitiesBelowAMountAndNullDeletes) {
  ASSERT_EQ(mountAll("StatehubTest::VtiDir", kVti), mountSuccess_);
  Lum::Ptr<VtiDir> dir = vtiDir();
  dir->vtiStatusIs(Wire::IntfId("Vxlan1"));
  dir->vtiStatusIs(Wire::IntfId("Ethernet1/1"));
  const std::string base = kVti;
  EXPECT_EQ(em->getEntity(base + "/vtiStatus/Vxlan1"), dir->vtiStatus(Wire::IntfId("Vxlan1")));
  EXPECT_EQ(em->getEntity(base + "/vtiStatus/Ethernet1/1/"),
            dir->vtiStatus(Wire::IntfId("Ethernet1/1")));
  EXPECT_EQ(em->getEntity(base + "/settings"), dir->settings());
  EXPECT_FALSE(em->getEntity(base + "/vtiStatus/Vxlan1/udpPort"));
  EXPECT_FALSE(em->getEntity("interface/status"));

  em->stateIs(
      {{kVti,
        {{"vtiStatus",
          {{"Vxlan1", {{"vlanToVniMap", {{"10", 1}, {"20", 2}}}}}, {"Vxlan2", json::object()}}}}}});
  em->stateIs({{kVti,
                {{"vtiStatus",
                  {{"Vxlan1", {{"vlanToVniMap", {{"10", nullptr}, {"30", nullptr}}}}},
                   {"Vxlan2", nullptr},
                   {"Ethernet1/1", nullptr},
                   {"Vxlan3", nullptr}}}}}});
  const json vtis = em->stateOf(kVti)["vtiStatus"];
  EXPECT_EQ(vtis.size(), 1u);
  EXPECT_EQ(vtis["Vxlan1"]["vlanToVniMap"], (json{{"20", 2}}));
}

// Guards the two moments state arrives: kept for a path mounted later and written
// when it is mounted, or written at once into a mounted entity, merged with what it
// holds. (Its reactors seeing the change before the answer: the control server's test.)
TEST_F(StatehubTest, StateAppliedAtMountAndAfter) {
  em->stateIs(
      {{std::string(kVti) + "/",
        {{"label", "fabric"},
         {"settings", {{"enabled", true}}},
         {"vtiStatus", {{"Vxlan1", {{"udpPort", 4790}, {"vlanToVniMap", {{"10", 5010}}}}}}}}}});
  EXPECT_EQ(em->pendingStatePaths(), std::vector<std::string>{kVti});
  ASSERT_EQ(mountAll("StatehubTest::VtiDir", kVti), mountSuccess_);
  EXPECT_TRUE(em->pendingStatePaths().empty());
  Lum::Ptr<VtiDir> dir = vtiDir();
  EXPECT_EQ(dir->label().view(), "fabric");
  EXPECT_TRUE(dir->settings()->enabled());
  Lum::Ptr<Vxlan::VtiStatus> vti = dir->vtiStatus(Wire::IntfId("Vxlan1"));
  ASSERT_TRUE(vti);
  EXPECT_EQ(vti->udpPort(), 4790);

  em->stateIs(json::parse(R"({"interface/status/eth/vxlan": {"vtiStatus": {"Vxlan1":
      {"udpPort": "4791", "vlanToVniMap": {"20": 5020}}}}})"));
  const json state = em->stateOf(std::string(kVti) + "/vtiStatus/Vxlan1");
  // Read back typed by the attribute's type, however it was written.
  EXPECT_EQ(state["udpPort"], 4791);
  EXPECT_EQ(state["vlanToVniMap"], (json{{"10", 5010}, {"20", 5020}}));
  const json dirState = em->stateOf(kVti);
  EXPECT_EQ(dirState["settings"]["version"], 3);
  EXPECT_EQ(dirState["settings"]["enabled"], true);
  EXPECT_EQ(dirState["label"], "fabric");
}

// Guards the all-or-nothing rule: every refused document leaves the entities as they
// were, even its valid parts that sort before the fault, and names the refused item.
TEST_F(StatehubTest, RefusedDocumentChangesNothingAndNamesThePath) {
  ASSERT_EQ(mountAll("StatehubTest::VtiDir", kVti), mountSuccess_);
  em->stateIs({{kVti, {{"vtiStatus", {{"Vxlan1", json::object()}}}}}});
  const json before = em->stateOf(kVti);
  const std::string base = kVti;
  const std::vector<std::pair<json, std::string>> bad = {
      {{{"foo", 1}}, base + "/foo: no attribute foo in StatehubTest::VtiDir"},
      {{{"vtiStatus", {{"Vxlan1", {{"udpPort", 70000}}}}}},
       base + "/vtiStatus/Vxlan1/udpPort: value 70000 out of range"},
      {{{"vtiStatus", {{"Vxlan1", {{"vlanToVniMap", {{"4095", 1}}}}}}}},
       base + "/vtiStatus/Vxlan1/vlanToVniMap/4095:"},
      {{{"vtiStatus", {{"Vxlan 1", json::object()}}}}, base + "/vtiStatus/Vxlan 1:"},
      {{{"vtiStatus", {{"Vxlan1", {{"operStatus", 99}}}}}},
       base + "/vtiStatus/Vxlan1/operStatus: 99 is not one of intfOperUnknown (0), intfOperUp (1)"},
      {{{"vtiStatus", {{"Vxlan1", {{"vlanToVniMap", "10"}}}}}},
       base + "/vtiStatus/Vxlan1/vlanToVniMap: a map is described by an object"},
      {{{"settings", {{"version", 4}}}}, base + "/settings/version:"},
      {{{"vtiStatus", {{"Vxlan1", {{"name", "Vxlan9"}}}}}}, base + "/vtiStatus/Vxlan1/name:"},
  };
  for (const auto& [content, message] : bad) {
    json doc = {{kVti, content}};
    doc[kVti]["label"] = "changed";  // valid, and first in key order
    doc[kVti]["settings"]["enabled"] = true;
    const std::string error = thrownText<StateError>([&] { em->stateIs(doc); });
    EXPECT_TRUE(error.starts_with(message)) << error;
    EXPECT_EQ(em->stateOf(kVti), before) << content;
  }

  // State for paths nothing mounts was kept without limit (a 256 MiB file peaked at
  // 1.3 GB): past the bound the document is refused whole and nothing more is kept.
  em->stateIs({{"later/a", {{"x", "small"}}}});
  const std::string big(EntityManager::kMaxPendingBytes / 2, 'x');
  em->stateIs({{"later/b", {{"x", big}}}});
  EXPECT_NE(thrownText<StateError>([&] {
              em->stateIs({{kVti, {{"label", "not written"}}}, {"later/c", {{"x", big}}}});
            }).find("nothing mounts would exceed"),
            std::string::npos);
  EXPECT_EQ(em->pendingStatePaths(), (std::vector<std::string>{"later/a", "later/b"}));
  EXPECT_EQ(em->stateOf(kVti), before);
}

// Guards against what is no state file: a directory was reported as "empty input" and
// /dev/zero was read until memory ran out. (A FIFO: the host's end-to-end case.)
TEST(DocumentTextTest, OnlyRegularFilesAreRead) {
  for (const auto& [path, kind] : {std::pair{"/", "a directory"}, {"/dev/zero", "a device"}}) {
    const std::string text = thrownText<StateError>([&] { DocumentText::readFile(path); });
    EXPECT_NE(text.find(std::string(kind) + ", not a state file"), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace Statehub
