#include "platform/wire/NetlinkSocket.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

#include "platform/core/Exception.h"
#include "platform/os/NetnsSocket.h"
#include "platform/os/SysCalls.h"

namespace Wire {

void createNetlinkSocket(int& out, uint32_t groups, std::string_view netNs, int replyWaitSeconds,
                         bool closeOnExec) {
  const int type = SOCK_RAW | (closeOnExec ? SOCK_CLOEXEC : 0);
  const int fd = Lum::socketInNamespace(netNs, AF_NETLINK, type, NETLINK_ROUTE);
  Lum::SysCalls& sys = Lum::sysCalls();
  auto fail = [&](const char* step) {
    const int err = errno;
    sys.close(fd);
    throw Lum::ErrnoException(err, step);
  };
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = groups;
  if (sys.bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) < 0) {
    fail("bind NETLINK_ROUTE");
  }
  const timeval wait{replyWaitSeconds, 0};
  if (sys.setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait) < 0) {
    fail("setsockopt SO_RCVTIMEO");
  }
  out = fd;
}

}  // namespace Wire
