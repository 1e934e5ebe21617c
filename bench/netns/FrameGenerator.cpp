#include "bench/netns/FrameGenerator.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <thread>

#include "platform/core/Exception.h"
#include "tests/netns/NamespaceSwitch.h"

namespace Bench {
namespace {

// Frames per sendmmsg when flat out: enough that the system call's own cost is spread
// thin, few enough that the pacing of a fixed rate stays even.
constexpr unsigned kMaxBatch = 64;
// A paced run sends one batch per this much time.
constexpr double kPacingStep = 20e-6;
// Waits longer than this sleep; shorter ones spin (a sleep overshoots by tens of µs).
constexpr double kSpinLimit = 200e-6;
constexpr int kSendBuffer = 64 << 20;

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

}  // namespace

std::atomic<bool> FrameGenerator::interrupted_{false};

void FrameGenerator::interrupt() {
  interrupted_ = true;
}

void FrameGenerator::throwIfInterrupted() {
  if (interrupted_) throw Lum::Exception("interrupted");
}

FrameGenerator::FrameGenerator(const std::string& netns, const std::string& device,
                               std::vector<uint8_t> frame)
    : frame_(std::move(frame)) {
  int ifindex = 0;
  {
    TestSupport::NamespaceSwitch in(netns);
    fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (fd_ < 0) throw Lum::ErrnoException(errno, "socket AF_PACKET in " + netns);
    ifindex = static_cast<int>(::if_nametoindex(device.c_str()));
  }
  const auto fail = [&](int err, const std::string& what) {
    ::close(fd_);
    throw Lum::ErrnoException(err, what + " " + device + " in " + netns);
  };
  if (ifindex == 0) fail(ENODEV, "if_nametoindex");
  const int one = 1;
  if (::setsockopt(fd_, SOL_PACKET, PACKET_QDISC_BYPASS, &one, sizeof one) != 0) {
    fail(errno, "PACKET_QDISC_BYPASS on");
  }
  // A frame stays charged to the socket's send buffer until it is freed, and a veth,
  // a bridge and a kernel VXLAN device hand the same buffer on: with the default size
  // the generator would wait for the path behind (which a real port never does) and
  // the kernel path could never be offered more than it takes. With this much, frames
  // are dropped where the receiving CPU's backlog overflows, as on a wire.
  const int sndbuf = kSendBuffer;
  if (::setsockopt(fd_, SOL_SOCKET, SO_SNDBUFFORCE, &sndbuf, sizeof sndbuf) != 0) {
    fail(errno, "SO_SNDBUFFORCE on");
  }
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_ifindex = ifindex;
  if (::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) fail(errno, "bind to");
}

FrameGenerator::~FrameGenerator() {
  ::close(fd_);
}

unsigned FrameGenerator::sendBatch(unsigned count) {
  iovec iov{frame_.data(), frame_.size()};
  std::array<mmsghdr, kMaxBatch> msgs{};
  count = std::min(count, kMaxBatch);
  for (unsigned i = 0; i < count; ++i) {
    msgs[i].msg_hdr.msg_iov = &iov;
    msgs[i].msg_hdr.msg_iovlen = 1;
  }
  const int n = ::sendmmsg(fd_, msgs.data(), count, 0);
  if (n >= 0) return static_cast<unsigned>(n);
  // A full send buffer or a device queue refusing: the frames are lost, as on a wire.
  if (errno == ENOBUFS || errno == EAGAIN || errno == EINTR) return 0;
  throw Lum::ErrnoException(errno, "sendmmsg on packet socket");
}

void FrameGenerator::burst(unsigned frames) {
  throwIfInterrupted();
  // A refused batch counts as one frame: a full buffer cannot hold the warm-up here.
  while (frames > 0) frames -= std::min(frames, std::max(sendBatch(frames), 1u));
}

Offered FrameGenerator::run(double pps, std::chrono::duration<double> duration) {
  const unsigned batch =
      pps > 0 ? std::clamp(static_cast<unsigned>(pps * kPacingStep), 1u, kMaxBatch) : kMaxBatch;
  const double limit = duration.count();
  const Clock::time_point start = Clock::now();
  Offered o;
  for (double now = 0; now < limit; now = since(start)) {
    throwIfInterrupted();
    if (pps > 0) {
      const double due = static_cast<double>(o.sent) / pps;
      if (now < due) {
        if (due - now > kSpinLimit) {
          std::this_thread::sleep_for(std::chrono::duration<double>(due - now - kSpinLimit / 2));
        }
        continue;
      }
    }
    o.sent += sendBatch(batch);
  }
  o.seconds = since(start);
  return o;
}

}  // namespace Bench
