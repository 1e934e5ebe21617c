#include "tests/netns/NamespaceSwitch.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/core/Exception.h"

namespace TestSupport {

NamespaceSwitch::NamespaceSwitch(const std::string& netns) {
  // The thread's own namespace, not the process's: another test thread may have moved.
  home_ = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (home_ < 0) throw Lum::ErrnoException(errno, "open /proc/thread-self/ns/net");
  const std::string path = "/run/netns/" + netns;
  const int target = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const int rc = target < 0 ? -1 : ::setns(target, CLONE_NEWNET);
  const int err = errno;
  if (target >= 0) ::close(target);
  if (rc != 0) {
    ::close(home_);
    throw Lum::ErrnoException(err, (target < 0 ? "open " : "setns ") + path);
  }
}

NamespaceSwitch::~NamespaceSwitch() {
  if (::setns(home_, CLONE_NEWNET) != 0) {
    std::perror("NamespaceSwitch: cannot return to the thread's namespace");
    std::abort();
  }
  ::close(home_);
}

}  // namespace TestSupport
