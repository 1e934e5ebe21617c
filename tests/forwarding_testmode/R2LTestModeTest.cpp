// Runs with VXLAN_R2L_TEST set in the environment (see tests/CMakeLists.txt).
#include <sys/un.h>

#include <cstdio>

#include "forwarding/TestMode.h"
#include "tests/forwarding/R2LFixture.h"

namespace Vxlan {
namespace {

class R2LTestModeTest : public R2LFixture {
 protected:
  void SetUp() override {
    R2LFixture::SetUp();
    std::snprintf(path_, sizeof path_, "./VxlanR2LSM-outbound-%d", int(::getpid()));
    ::unlink(path_);
    sink_ = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path_);
    ASSERT_EQ(::bind(sink_, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  }
  void TearDown() override {
    ::close(sink_);
    ::unlink(path_);
    R2LFixture::TearDown();
  }
  char path_[108];
  int sink_ = -1;
};

// Guards the test mode: the flag is read from the environment at load, the local
// socket is a Unix datagram socket, and frames go to the outbound path of this
// process rather than through write().
TEST_F(R2LTestModeTest, FramesGoToTheOutboundPath) {
  ASSERT_TRUE(R2L_TEST);
  EXPECT_FALSE(L2R_TEST);
  ::close(sm_->localSock());
  sm_->localSockIs(-1);
  sm_->createLocalSocket();
  ASSERT_NE(sm_->localSock(), -1);
  TestSupport::VxlanFrameBuilder b;
  send(b.build());
  loop_.runOnce(0);
  uint8_t buf[512];
  EXPECT_EQ(::recv(sink_, buf, sizeof buf, MSG_DONTWAIT), ssize_t(b.inner.size() + 8));
  EXPECT_EQ(buf[12], 0x00);
  EXPECT_EQ(buf[13], 0x08);
  EXPECT_TRUE(written().empty());
}

}  // namespace
}  // namespace Vxlan

namespace Vxlan {
namespace {

// Guards the test mode of the whole machine: an interface that comes up binds its
// remote socket to the inbound path of this process, and a datagram sent there
// comes out at the outbound path decapsulated; down closes the inbound socket.
TEST(R2LTestModeLifecycle, InboundPathCarriesFramesWhileUp) {
  auto unixAddr = [](const char* format) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::snprintf(a.sun_path, sizeof a.sun_path, format, int(::getpid()));
    return a;
  };
  const sockaddr_un out = unixAddr("./VxlanR2LSM-outbound-%d");
  const sockaddr_un in = unixAddr("./VxlanR2LSM-inbound-%d");
  ::unlink(out.sun_path);
  const int sink = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_EQ(::bind(sink, reinterpret_cast<const sockaddr*>(&out), sizeof out), 0);
  Lum::Ptr<VtiStatusDir> dir = new VtiStatusDir("vtiStatus");
  Remote2LocalForwarderSm::Inputs inputs = Remote2LocalForwarderSm::inputs(
      new VniToVlanMaps("vniToVlanMaps"),
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>()));
  inputs.vtiStatusDir = dir;
  Lum::Ptr<Remote2LocalForwarderSm> r2l = new Remote2LocalForwarderSm(inputs);
  Lum::Ptr<VtiStatus> s = dir->vtiStatusIs(Wire::IntfId("Vxlan1"));
  s->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
  s->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(5000));
  s->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  auto sendIn = [&](const std::vector<uint8_t>& f) {
    return ::sendto(sink, f.data(), f.size(), 0, reinterpret_cast<const sockaddr*>(&in), sizeof in);
  };
  TestSupport::VxlanFrameBuilder b;
  ASSERT_EQ(sendIn(b.build()), ssize_t(b.build().size()));
  Lum::eventLoop().runOnce(0);
  uint8_t buf[512];
  EXPECT_EQ(::recv(sink, buf, sizeof buf, MSG_DONTWAIT), ssize_t(b.inner.size() + 8));

  s->operStatusIs(Interface::IntfOperStatus::intfOperDown);
  EXPECT_EQ(r2l->vtiStatusSm(Wire::IntfId("Vxlan1"))->remoteSock(), -1);
  EXPECT_LT(sendIn(b.build()), 0);
  r2l = nullptr;
  ::close(sink);
  ::unlink(out.sun_path);
  ::unlink(in.sun_path);
}

}  // namespace
}  // namespace Vxlan
