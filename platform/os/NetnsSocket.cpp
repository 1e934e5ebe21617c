#include "platform/os/NetnsSocket.h"

#include <fcntl.h>
#include <sched.h>

#include <cerrno>
#include <string>

#include "platform/core/Exception.h"
#include "platform/os/SysCalls.h"

namespace Lum {

namespace {

// Where `ip netns add` leaves a handle on each named namespace.
constexpr std::string_view kNetnsDir = "/run/netns/";
// The calling thread's own namespace (setns moves a thread, not the process).
constexpr const char* kOwnNetns = "/proc/thread-self/ns/net";

}  // namespace

bool isOwnNamespace(std::string_view name) {
  return name.empty() || name == "default";
}

void checkNamespaceName(std::string_view name) {
  if (name == "." || name == ".." || name.find('/') != std::string_view::npos) {
    throwRangeException("NamespaceName \"" + std::string(name) + "\" is not a namespace name");
  }
}

int socketInNamespace(std::string_view name, int domain, int type, int protocol) {
  SysCalls& sys = sysCalls();
  if (isOwnNamespace(name)) {
    const int fd = sys.socket(domain, type, protocol);
    if (fd < 0) throw ErrnoException(errno, "socket");
    return fd;
  }
  checkNamespaceName(name);
  const std::string path = std::string(kNetnsDir) + std::string(name);
  const int target = sys.open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW, 0);
  if (target < 0) throw ErrnoException(errno, "open " + path);
  const int home = sys.open(kOwnNetns, O_RDONLY | O_CLOEXEC, 0);
  int fd = -1;
  int err = errno;
  std::string step = std::string("open ") + kOwnNetns;
  if (home >= 0) {
    if (sys.setns(target, CLONE_NEWNET) < 0) {
      err = errno;
      step = "setns " + path;
    } else {
      fd = sys.socket(domain, type, protocol);
      err = errno;
      step = "socket in namespace " + std::string(name);
      // Whatever socket() did, the thread goes home before anything else runs.
      if (sys.setns(home, CLONE_NEWNET) < 0) {
        err = errno;
        step = "setns back to the thread's own namespace";
        if (fd >= 0) sys.close(fd);
        fd = -1;
      }
    }
  }
  sys.close(target);
  if (home >= 0) sys.close(home);
  if (fd < 0) throw ErrnoException(err, step);
  return fd;
}

}  // namespace Lum
