// Who may reach a running host, and which host a name reaches: the control socket's
// folder and mode, the peer's credentials, one host per agent name, and vxrelayctl
// finding an agent's socket by its name alone. Run as root, as CI does; each test
// skips without root, since it starts clients as another user.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/host/HostProcess.h"

namespace {

using namespace TestSupport;

constexpr uid_t kNobody = 65534;

// The mode bits of a path, as `stat` shows them.
mode_t modeOf(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

// Connects to `socket` as uid kNobody and asks for the tunnel interfaces. The child's
// exit code says what came of it: 0 an answer, 1 the connection was closed unanswered,
// 2 the connection was refused, 3 anything else.
int askAsNobody(const std::string& socket) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(3);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    socket.copy(addr.sun_path, sizeof addr.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) ::_exit(2);
    const std::string line = R"({"op": "get", "path": "interface/status/eth/vxlan"})"
                             "\n";
    if (::send(fd, line.data(), line.size(), MSG_NOSIGNAL) < 0) ::_exit(1);
    char byte;
    ::_exit(::recv(fd, &byte, 1, 0) > 0 ? 0 : 1);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 3;
}

class HostAccessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "starts clients as another user; CI runs as root";
  }
};

// Guards the socket against other local users: at umask 000 it was 0777 in a folder
// anyone could make first. Now it is 0600 in a folder of the host's user closed to
// others, a client of another user is closed unanswered even where the mode lets it
// in, and vxrelayctl reaches the agent by its name alone (Host::ready asks through it).
TEST_F(HostAccessTest, SocketIsTheOwnersAndFoundByAgentName) {
  const mode_t old = ::umask(0);
  Host host({.control = "-"});
  ::umask(old);
  ASSERT_TRUE(host.ready()) << host.child().errors();
  EXPECT_EQ(modeOf(host.control()), 0600u);
  EXPECT_EQ(modeOf(Statehub::RuntimeDir::defaultPath()) & 0077, 0u);

  EXPECT_EQ(askAsNobody(host.control()), 2) << "the socket's mode let another user in";
  ASSERT_EQ(::chmod(host.control().c_str(), 0666), 0);
  ASSERT_EQ(::chmod(Statehub::RuntimeDir::defaultPath().c_str(), 0711), 0);
  EXPECT_EQ(askAsNobody(host.control()), 1) << "another user was answered";
  ::chmod(Statehub::RuntimeDir::defaultPath().c_str(), 0700);
}

// Guards the start against a planted or squatted folder: one others may write, one of
// another user and a link are refused with the reason, before any socket is made.
TEST_F(HostAccessTest, ForeignOrOpenFolderIsRefused) {
  TempDir base("vxr-access");
  const std::string open = base.file("open"), foreign = base.file("foreign"),
                    link = base.file("link");
  std::filesystem::create_directory(open);
  ::chmod(open.c_str(), 0777);
  std::filesystem::create_directory(foreign);
  ASSERT_EQ(::chown(foreign.c_str(), kNobody, kNobody), 0);
  std::filesystem::create_directory_symlink(base.path(), link);
  const std::pair<std::string, std::string> cases[] = {
      {open, "may be written by others"}, {foreign, "belongs to uid 65534"}, {link, "link"}};
  for (const auto& [folder, reason] : cases) {
    SCOPED_TRACE(folder);
    Host host({.control = folder + "/ctl.sock"});
    const std::string err = refusalLine(host.child());
    EXPECT_NE(err.find(reason), std::string::npos) << err;
    EXPECT_FALSE(std::filesystem::exists(folder + "/ctl.sock"));
  }
}

// Guards one host per agent name: a second one started without complaint, wrote into
// the first one's counter table and truncated its trace ring.
TEST_F(HostAccessTest, SecondHostOfANameIsRefused) {
  Host first;
  ASSERT_TRUE(first.ready()) << first.child().errors();
  Host second({.name = first.name()});
  EXPECT_EQ(refusalLine(second.child()),
            "vxrelay-host: agent " + first.name() + " is already running (" +
                Statehub::RuntimeDir::defaultPath() + "/" + first.name() + ".lock is held)\n");
  EXPECT_TRUE(first.child().running());
  EXPECT_EQ(first.ctl({"state", "get", "interface/status/eth/vxlan"}).exitCode, 0);
  // The refused host leaves the lock alone; the holder removes it as it ends.
  const std::string lock = Statehub::RuntimeDir::defaultPath() + "/" + first.name() + ".lock";
  EXPECT_TRUE(std::filesystem::exists(lock));
  first.child().stop();
  EXPECT_FALSE(std::filesystem::exists(lock));
}

}  // namespace
