// Runs with VXLAN_R2L_TEST set in the environment (see tests/CMakeLists.txt).
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "forwarding/Remote2LocalForwarderSm.h"
#include "forwarding/TestMode.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

// Guards the test mode of the whole machine: the flag is read from the environment at
// load (the other direction's is not), an interface that comes up binds its remote
// socket to the inbound path of this process, and a datagram sent there comes out at
// the outbound path in the txraw form, through sendto rather than write; down closes
// the inbound socket.
TEST(R2LTestModeLifecycle, InboundPathCarriesFramesWhileUp) {
  ASSERT_TRUE(R2L_TEST);
  EXPECT_FALSE(L2R_TEST);
  sockaddr_un out;
  sockaddr_un in;
  testModeAddress(out, "./VxlanR2LSM-outbound-%d");
  testModeAddress(in, "./VxlanR2LSM-inbound-%d");
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
  const ssize_t n = ::recv(sink, buf, sizeof buf, MSG_DONTWAIT);
  ASSERT_GT(n, 0);
  EXPECT_EQ(std::vector<uint8_t>(buf, buf + n),
            TestSupport::txRawFrame(b.inner, Bridging::VlanId(10), HwPortId::unknown()));

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
