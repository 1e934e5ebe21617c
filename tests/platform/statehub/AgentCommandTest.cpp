#include "platform/statehub/AgentCommand.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

struct Recorder : AgentCommandCallback {
  Recorder() : AgentCommandCallback("", "vxlan") {}
  std::vector<std::pair<uint32_t, std::string>> seen;
  void handleCommand(uint32_t socket, const Lum::String8& command) override {
    seen.emplace_back(socket, command.str());
  }
};

Lum::Ptr<AgentCommandRequest> request(const char* id, const char* type, const char* text) {
  Lum::Ptr<AgentCommandRequest> r(new AgentCommandRequest(id));
  r->typeIs(type);
  r->commandIs(text);
  r->socketIs(7);
  return r;
}

// Guards dispatch: requests already in the directory are taken at the start; only
// requests of the callback's type reach it, each once; every request leaves the
// directory; nothing is handled while no callback exists, and such requests are not
// replayed when one comes.
TEST(AgentCommandTest, DispatchByTypeOnce) {
  Lum::Ptr<Lum::Dir> dir(new Lum::Dir("vxlan"));
  dir->entityIs(request("0", "vxlan", "x"));
  Lum::Ptr<AgentCommandRequestStatus> status(new AgentCommandRequestStatus("vxlan"));
  Lum::Ptr<AgentCommandRequestDirSm> sm(new AgentCommandRequestDirSm(nullptr, dir));
  EXPECT_EQ(dir->entities(), 0u) << "a request from before the start was left";
  sm->statusIs(status);
  dir->entityIs(request("1", "vxlan", "clearVarpCtr"));
  EXPECT_EQ(dir->entities(), 0u);

  Lum::Ptr<Recorder> cb(new Recorder);
  sm->agentCommandCallbackIs(cb);
  EXPECT_TRUE(cb->seen.empty()) << "a request from before the callback was replayed";
  dir->entityIs(request("2", "vxlan", "clear vxlan counters software"));
  dir->entityIs(request("3", "lldp", "clear counters"));
  EXPECT_EQ(cb->seen,
            (std::vector<std::pair<uint32_t, std::string>>{{7, "clear vxlan counters software"}}));
  EXPECT_EQ(dir->entities(), 0u);
  EXPECT_EQ(status->handled(), 1u);
}

}  // namespace
}  // namespace Agent
