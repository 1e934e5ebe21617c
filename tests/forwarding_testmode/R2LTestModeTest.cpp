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
