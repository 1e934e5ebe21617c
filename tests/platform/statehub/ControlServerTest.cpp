#include "platform/statehub/ControlServer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "StatehubModel.h"
#include "platform/loop/ActivityManager.h"
#include "platform/os/SysCalls.h"
#include "platform/statehub/ControlClient.h"
#include "tests/support/TempDir.h"

namespace Statehub {
namespace {

using nlohmann::json;

class ControlServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    socketPath_ = dir_.file("statehub.sock");
    ASSERT_EQ(StatehubTest::mountAll(*em_, loop_, {{"r", "StatehubTest::VtiDir", kVti}}),
              mountSuccess_);
    server_ = std::make_unique<ControlServer>(*em_, socketPath_, loop_);
  }

  // Sends and runs the loop until the answer is there (a bounded number of passes).
  json roundTrip(ControlClient& c, const json& request) {
    c.send(request);
    return awaitAnswer(c);
  }
  json awaitAnswer(ControlClient& c) {
    for (int pass = 0; pass < 200; ++pass) {
      loop_.runOnce(0.01);
      if (std::optional<json> a = c.answer(0)) return *a;
    }
    ADD_FAILURE() << "no answer";
    return json();
  }
  // Writes `bytes` whole while the server runs: more than a socket buffer holds.
  void sendAll(ControlClient& c, const std::string& bytes) {
    size_t done = 0;
    for (int pass = 0; done < bytes.size() && pass < 100000; ++pass) {
      const ssize_t n = ::send(c.descriptor(), bytes.data() + done, bytes.size() - done,
                               MSG_DONTWAIT | MSG_NOSIGNAL);
      if (n > 0) done += static_cast<size_t>(n);
      loop_.runOnce(0);
    }
    ASSERT_EQ(done, bytes.size());
  }
  // Whether a get of the tunnel directory through `c` is answered with ok.
  bool served(ControlClient& c) {
    return roundTrip(c, {{"op", "get"}, {"path", kVti}})["ok"] == true;
  }
  void runUntilClients(size_t n) {
    for (int pass = 0; pass < 200 && server_->clients() != n; ++pass) loop_.runOnce(0.01);
  }

  static constexpr const char* kVti = "interface/status/eth/vxlan";
  Lum::EventLoop loop_;
  Lum::Ptr<EntityManager> em_{new EntityManager(loop_)};
  TestSupport::TempDir dir_{"vxr-ctl"};
  std::string socketPath_;
  std::unique_ptr<ControlServer> server_;
};

// Guards apply on a real socket: it is seen by a reactor (even one whose reactions wait
// on an activity) before its "ok" arrives, and state kept for a later mount is named.
// (Get and command through the tool: the host's end-to-end tests.)
TEST_F(ControlServerTest, ApplyIsSeenBeforeItsAnswer) {
  ControlClient client(socketPath_);
  em_->stateIs({{kVti, {{"vtiStatus", {{"Vxlan1", json::object()}}}}}});
  auto dir = Lum::ptrCast<StatehubTest::VtiDir>(em_->getEntity(kVti));
  Lum::Ptr<StatehubTest::VtiWatch> watch(new StatehubTest::VtiWatch);
  Lum::ActivityManager activities(loop_);
  watch->lumFwkActivityIs(activities.newActivity());
  watch->notifierIs(dir->vtiStatus(Wire::IntfId("Vxlan1")));
  watch->isRegisteredNotifieeIs(true);

  client.send(
      {{"op", "apply"}, {"state", {{kVti, {{"vtiStatus", {{"Vxlan1", {{"udpPort", 4790}}}}}}}}}});
  for (int pass = 0; pass < 200; ++pass) {
    loop_.runOnce(0.01);
    if (std::optional<json> answer = client.answer(0)) {
      EXPECT_EQ(*answer, json({{"ok", true}}));
      break;
    }
    ASSERT_TRUE(watch->seen.empty()) << "reacted, but the answer is not there";
  }
  EXPECT_EQ(watch->seen, std::vector<std::string>{"udpPort 4790"});

  // State for a path nothing mounts yet is kept, and the answer says which.
  const json a = roundTrip(client, {{"op", "apply"}, {"state", {{"later/path", {{"x", 1}}}}}});
  EXPECT_EQ(a["pending"], json::array({"later/path"}));
}

// Guards against clients that go away taking the server or other clients with them:
// one leaves half a line, one leaves without reading its answer; one closes its
// sending side after a request and must still get the answer.
TEST_F(ControlServerTest, ClientsThatLeaveAreDroppedCleanly) {
  {
    ControlClient partial(socketPath_);
    const std::string half = "{\"op\": \"get\"";
    ASSERT_EQ(::send(partial.descriptor(), half.data(), half.size(), 0), ssize_t(half.size()));
    ControlClient rude(socketPath_);
    rude.send({{"op", "apply"}, {"state", {{kVti, {{"label", "rude"}}}}}});
    runUntilClients(2);
  }
  runUntilClients(0);
  EXPECT_EQ(server_->clients(), 0u);
  EXPECT_EQ(Lum::ptrCast<StatehubTest::VtiDir>(em_->getEntity(kVti))->label().view(), "rude");

  ControlClient halfClosed(socketPath_);
  halfClosed.send({{"op", "get"}, {"path", kVti}});
  ASSERT_EQ(::shutdown(halfClosed.descriptor(), SHUT_WR), 0);
  EXPECT_EQ(awaitAnswer(halfClosed)["ok"], true);
  runUntilClients(0);
  EXPECT_EQ(server_->clients(), 0u);
}

// Guards the server against requests built to hurt it: a document nested 100,000 deep
// (which overflowed the stack of a recursive copy), bytes that are not UTF-8 (whose
// answer could not be written, leaving the client without one), a path of 320,000
// components (walked in quadratic time) and megabytes of blank lines (each erased from
// the front of the buffer). Each gets its answer, and the connection goes on.
TEST_F(ControlServerTest, HostileRequestsAreAnsweredAndRefused) {
  ControlClient client(socketPath_);
  const size_t depth = 100000;
  std::string deep = R"({"op": "apply", "state": {"x": )";
  deep += std::string(depth, '[') + std::string(depth, ']') + "}}\n";
  sendAll(client, deep);
  EXPECT_NE(awaitAnswer(client).value("error", "").find("nested deeper than 64"),
            std::string::npos);

  client.sendLine("{\"op\": \"get\", \"path\": \"\xff\xfe\xc3\"}");
  EXPECT_EQ(awaitAnswer(client)["ok"], false);
  for (const json& bad :
       {json::array(), json{{"op", "fly"}}, json{{"op", "get"}},
        json{{"op", "command"}, {"path", kVti}, {"type", "t"}, {"command", "c"}}}) {
    EXPECT_TRUE(roundTrip(client, bad)["error"].is_string()) << bad;
  }

  std::string path = kVti;
  for (int i = 0; i < 320000; ++i) path += "/a";
  sendAll(client, json({{"op", "get"}, {"path", path}}).dump() + "\n");
  EXPECT_NE(awaitAnswer(client).value("error", "").find("at most 64 components"),
            std::string::npos);
  sendAll(client,
          json({{"op", "command"}, {"path", path}, {"type", "t"}, {"command", "c"}}).dump() + "\n");
  EXPECT_EQ(awaitAnswer(client)["ok"], false);

  sendAll(client, std::string(4u << 20, '\n'));
  EXPECT_TRUE(served(client));
}

// Guards the descriptor budget: idle clients beyond the cap push out the oldest idle
// one instead of piling up, and a server out of descriptors sheds the waiting
// connection (which a level-triggered listening socket would otherwise report for
// ever, spinning the loop) and serves the next one.
TEST_F(ControlServerTest, ClientsAreCappedAndDescriptorShortageSheds) {
  std::vector<std::unique_ptr<ControlClient>> idle;
  for (size_t i = 0; i < ControlServer::kMaxClients + 8; ++i) {
    idle.push_back(std::make_unique<ControlClient>(socketPath_));
    loop_.runOnce(0);
  }
  runUntilClients(ControlServer::kMaxClients);
  EXPECT_EQ(server_->clients(), ControlServer::kMaxClients);
  EXPECT_TRUE(served(*idle.back()));
  char byte;
  EXPECT_EQ(::recv(idle.front()->descriptor(), &byte, 1, MSG_DONTWAIT), 0) << "oldest kept";
  idle.clear();
  runUntilClients(0);

  struct OutOfDescriptors : Lum::SysCalls {
    int refusals = 1;
    int accept4(int fd, sockaddr* a, socklen_t* l, int flags) override {
      if (refusals > 0 && refusals--) return errno = EMFILE, -1;
      return SysCalls::accept4(fd, a, l, flags);
    }
  } fake;
  {
    Lum::ScopedSysCalls scoped(fake);
    ControlClient shed(socketPath_);
    for (int pass = 0; pass < 20; ++pass) loop_.runOnce(0.01);
    EXPECT_EQ(::recv(shed.descriptor(), &byte, 1, MSG_DONTWAIT), 0) << "the waiting one is kept";
    EXPECT_EQ(server_->clients(), 0u);
  }
  ControlClient next(socketPath_);
  EXPECT_TRUE(served(next));
}

// Guards the socket file: a live server's is not taken over, the file goes with its
// server, and one left by a server that is gone is replaced.
TEST_F(ControlServerTest, SocketFileLifetime) {
  EXPECT_THROW(ControlServer(*em_, socketPath_, loop_), Lum::ErrnoException);
  ControlClient stillServed(socketPath_);
  EXPECT_TRUE(served(stillServed));
  server_.reset();
  EXPECT_FALSE(std::filesystem::exists(socketPath_));
  // A socket file whose server died without removing it.
  const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  socketPath_.copy(addr.sun_path, sizeof addr.sun_path - 1);
  ASSERT_EQ(::bind(stale, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ::close(stale);
  server_ = std::make_unique<ControlServer>(*em_, socketPath_, loop_);
  ControlClient client(socketPath_);
  EXPECT_TRUE(served(client));
}

}  // namespace
}  // namespace Statehub
