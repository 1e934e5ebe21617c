// Statehub::RuntimeDir: where an agent host keeps what others reach it by (its control
// socket) and what says it runs (its lock), and who may use them.
//
//   /run/vxrelay/              root's hosts; $XDG_RUNTIME_DIR/vxrelay or
//                              /tmp/vxrelay-<uid> for anyone else
//     <agent>.sock             the control socket of agent <agent>, mode 0600
//                              (0660 with an operators' group)
//     <agent>.lock             held (flock) for as long as the host of <agent> runs,
//                              removed when it ends
//
// The folder belongs to the host's user and is closed to others (0700, or 0750 when an
// operators' group may use the socket). A folder that is a link, belongs to someone
// else, or that others may write is refused, never used: anyone who could create it
// first could otherwise put their own socket where a root client connects, or keep the
// host from starting. The agent name alone selects one agent everywhere: the host and
// vxrelayctl derive the same socket path from it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace Statehub {

class RuntimeDir {
 public:
  // The folder for this user's hosts.
  static std::string defaultPath();
  // The control socket of agent `agentName` in the default folder.
  static std::string controlSocket(std::string_view agentName);

  // Makes `path` if it is missing (mode 0700, or 0750 with `group`) and checks it: a
  // directory, not a link, owned by this user, not writable by group or others.
  // Throws Lum::Exception saying what is wrong.
  static void ensure(const std::string& path, std::optional<gid_t> group = std::nullopt);
};

// The lock that makes one agent name one running host. Held until destroyed.
class AgentLock {
 public:
  // Takes `<folder>/<agentName>.lock`; throws Lum::Exception naming the agent when
  // another process holds it, or saying why the lock cannot be had.
  AgentLock(const std::string& folder, std::string_view agentName);
  ~AgentLock();
  AgentLock(const AgentLock&) = delete;
  AgentLock& operator=(const AgentLock&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int fd_ = -1;
};

}  // namespace Statehub
