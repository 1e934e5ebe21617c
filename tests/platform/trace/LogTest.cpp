#include "platform/trace/Log.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace Lum {
namespace {

// What a child reads on its own /dev/log after logging one warning through syslog, or
// why it could not. The child works in a mount namespace of its own with a fresh /dev,
// so the machine's log (if any) never sees the line and nothing of the host's changes.
std::string syslogLineOfChild() {
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) return "pipe failed";
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(pipeFds[0]);
    std::string got = "set-up failed: ";
    const int s = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strcpy(addr.sun_path, "/dev/log");
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0 ||
        ::bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
      got += std::strerror(errno);
    } else {
      logProgramIs("vxrelay-logtest");
      logToSyslogIs();
      logLine(LogSeverity::warning, "Vxlan1: waiting for device vtep0");
      char buf[512];
      timeval wait{5, 0};
      ::setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
      const ssize_t n = ::recv(s, buf, sizeof buf, 0);
      got = n > 0 ? std::string(buf, static_cast<size_t>(n)) : "nothing arrived";
    }
    (void)!::write(pipeFds[1], got.data(), got.size());
    ::_exit(0);
  }
  ::close(pipeFds[1]);
  std::string out;
  char buf[512];
  for (ssize_t n; (n = ::read(pipeFds[0], buf, sizeof buf)) > 0;) out.append(buf, n);
  ::close(pipeFds[0]);
  ::waitpid(pid, nullptr, 0);
  return out;
}

// Guards the way to the journal: a line logged with syslog chosen reaches the system
// log socket under the program's name, with the daemon facility and the warning
// priority (<28>), and nothing of it on stderr's form.
TEST(LogTest, ToSyslogUnderTheProgramsNameWithItsSeverity) {
  if (::geteuid() != 0) GTEST_SKIP() << "a mount namespace needs root";
  const std::string line = syslogLineOfChild();
  EXPECT_EQ(line.rfind("<28>", 0), 0u) << line;
  EXPECT_NE(line.find(" vxrelay-logtest["), std::string::npos) << line;
  EXPECT_TRUE(line.ends_with("]: Vxlan1: waiting for device vtep0")) << line;
}

}  // namespace
}  // namespace Lum
