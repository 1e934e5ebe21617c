#include "tests/netns/PacketSocket.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/core/Exception.h"
#include "tests/netns/NamespaceSwitch.h"

namespace TestSupport {

PacketSocket::PacketSocket(const std::string& netns, const std::string& device, Mode mode) {
  // Protocol 0 receives nothing: a send-only socket must not fill its queue unread.
  const uint16_t protocol = mode == Mode::capture ? htons(ETH_P_ALL) : 0;
  NamespaceSwitch in(netns);
  fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, protocol);
  if (fd_ < 0) throw Lum::ErrnoException(errno, "socket AF_PACKET in " + netns);
  // The index must be looked up inside: the same name may exist elsewhere.
  ifindex_ = static_cast<int>(::if_nametoindex(device.c_str()));
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = protocol;
  addr.sll_ifindex = ifindex_;
  if (ifindex_ == 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    const int err = ifindex_ == 0 ? ENODEV : errno;
    ::close(fd_);
    throw Lum::ErrnoException(err, "bind to " + device + " in " + netns);
  }
}

PacketSocket::~PacketSocket() {
  ::close(fd_);
}

void PacketSocket::send(const Frame& frame) {
  const ssize_t n = ::send(fd_, frame.data(), frame.size(), 0);
  if (n < 0) throw Lum::ErrnoException(errno, "send on packet socket");
  if (static_cast<size_t>(n) != frame.size()) {
    throw Lum::Exception("short send on packet socket: " + std::to_string(n));
  }
}

std::optional<Frame> PacketSocket::receive(const std::function<bool(const Frame&)>& match,
                                           std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  Frame buf(65536);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd p{fd_, POLLIN, 0};
    const int ready = ::poll(&p, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) throw Lum::ErrnoException(errno, "poll on packet socket");
    if (ready <= 0) continue;
    sockaddr_ll from{};
    socklen_t fromLen = sizeof from;
    const ssize_t n = ::recvfrom(fd_, buf.data(), buf.size(), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&from), &fromLen);
    if (n < 0) {
      if (errno == EAGAIN || errno == EINTR) continue;
      throw Lum::ErrnoException(errno, "recvfrom on packet socket");
    }
    if (from.sll_pkttype == PACKET_OUTGOING) continue;
    Frame frame(buf.begin(), buf.begin() + n);
    if (match(frame)) return frame;
  }
}

}  // namespace TestSupport
