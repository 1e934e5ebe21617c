#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <vector>

#include "platform/os/SysCalls.h"
#include "platform/wire/ArpNeighbor.h"
#include "platform/wire/NetlinkSocket.h"

namespace {

// A kernel that answers each request with the error codes queued, each an ack
// (nlmsgerr) for the sequence number given relative to the request's.
struct AnsweringKernel : Lum::SysCalls {
  struct Answer {
    int seqOffset;
    int error;
  };
  std::deque<Answer> answers;
  uint32_t lastSeq = 0;
  int sendErr = 0;
  int bindErr = 0;
  std::vector<int> closed;
  int socket(int, int, int) override { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }
  int bind(int, const sockaddr*, socklen_t) override { return bindErr ? errno = bindErr, -1 : 0; }
  int close(int fd) override { return closed.push_back(fd), ::close(fd); }
  Lum::SysResult sendto(int, const void* buf, size_t len, int, const sockaddr*,
                        socklen_t) override {
    lastSeq = static_cast<const nlmsghdr*>(buf)->nlmsg_seq;
    return sendErr ? Lum::SysResult{-1, sendErr} : Lum::SysResult{ssize_t(len), 0};
  }
  Lum::SysResult recv(int, void* buf, size_t, int) override {
    if (answers.empty()) return {-1, EAGAIN};  // the socket's wait ran out
    const Answer a = answers.front();
    answers.pop_front();
    struct {
      nlmsghdr hdr;
      nlmsgerr err;
    } msg{};
    msg.hdr.nlmsg_len = sizeof msg;
    msg.hdr.nlmsg_type = NLMSG_ERROR;
    msg.hdr.nlmsg_seq = lastSeq + a.seqOffset;
    msg.err.error = -a.error;
    std::memcpy(buf, &msg, sizeof msg);
    return {ssize_t(sizeof msg), 0};
  }
};

int add(int fd) {
  return Arp::ipNeighAdd(fd, 3, Wire::IpAddr::fromHostOrder(0x0a000001), Wire::EthAddr(2, 0, 1),
                         Arp::kNeighReachable);
}

// An answer that comes late, to an earlier request, is not taken for this one; the
// kernel's error, a failed send and an answer that never comes each give a negative
// errno.
TEST(NeighborWriteTest, TheAnswerToThisRequestDecides) {
  AnsweringKernel kernel;
  Lum::ScopedSysCalls guard(kernel);
  kernel.answers = {{-1, ENODEV}, {0, 0}};
  EXPECT_EQ(add(7), 0);
  kernel.answers = {{-1, 0}, {0, EINVAL}};
  EXPECT_EQ(add(7), -EINVAL);
  EXPECT_EQ(add(7), -EAGAIN);
  kernel.sendErr = ENOBUFS;
  EXPECT_EQ(add(7), -ENOBUFS);
}

// A socket whose set-up fails is closed, names the failed step and leaves the
// caller's descriptor as it was.
TEST(NeighborWriteTest, FailedSocketSetUpLeavesNothingOpen) {
  AnsweringKernel kernel;
  Lum::ScopedSysCalls guard(kernel);
  kernel.bindErr = EPERM;
  int fd = -1;
  try {
    Wire::createNetlinkSocket(fd, 0, "", 2, true);
    FAIL() << "no exception";
  } catch (const Lum::ErrnoException& e) {
    EXPECT_EQ(e.errNo(), EPERM);
    EXPECT_EQ(e.step(), "bind NETLINK_ROUTE");
  }
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(kernel.closed.size(), 1u);
}

}  // namespace
