#include "platform/statehub/RuntimeDir.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/core/Exception.h"
#include "platform/os/SysCalls.h"

namespace Statehub {

std::string RuntimeDir::defaultPath() {
  if (::geteuid() == 0) return "/run/vxrelay";
  if (const char* xdg = std::getenv("XDG_RUNTIME_DIR"); xdg && *xdg == '/') {
    return std::string(xdg) + "/vxrelay";
  }
  return "/tmp/vxrelay-" + std::to_string(::geteuid());
}

std::string RuntimeDir::controlSocket(std::string_view agentName) {
  return defaultPath() + "/" + std::string(agentName) + ".sock";
}

void RuntimeDir::ensure(const std::string& path, std::optional<gid_t> group) {
  Lum::SysCalls& sys = Lum::sysCalls();
  const mode_t mode = group ? 0750 : 0700;
  if (sys.mkdir(path.c_str(), mode) == 0) {
    // The mode asked of mkdir is cut by the umask; the group is set before it may enter.
    if (group && ::chown(path.c_str(), static_cast<uid_t>(-1), *group) != 0) {
      throw Lum::ErrnoException(errno, "chown " + path);
    }
    if (sys.chmod(path.c_str(), mode) != 0) throw Lum::ErrnoException(errno, "chmod " + path);
  } else if (errno != EEXIST) {
    throw Lum::ErrnoException(errno, "mkdir " + path);
  }
  struct stat st {};
  if (sys.lstat(path.c_str(), &st) != 0) throw Lum::ErrnoException(errno, "lstat " + path);
  if (S_ISLNK(st.st_mode)) throw Lum::Exception(path + " is a symbolic link, not a folder");
  if (!S_ISDIR(st.st_mode)) throw Lum::Exception(path + " is not a folder");
  if (st.st_uid != ::geteuid()) {
    throw Lum::Exception(path + " belongs to uid " + std::to_string(st.st_uid) + ", not to " +
                         std::to_string(::geteuid()));
  }
  if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    char octal[8];
    std::snprintf(octal, sizeof octal, "%03o", static_cast<unsigned>(st.st_mode & 0777));
    throw Lum::Exception(path + " may be written by others (mode " + octal + ")");
  }
}

AgentLock::AgentLock(const std::string& folder, std::string_view agentName)
    : path_(folder + "/" + std::string(agentName) + ".lock") {
  Lum::SysCalls& sys = Lum::sysCalls();
  // The holder removes the file when it ends. A host that opened it just before then
  // holds a lock on a file no longer at the path: it finds that out by comparing the
  // two and takes the file that is there now, so that two hosts never both hold one.
  for (;;) {
    fd_ = sys.open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd_ < 0) throw Lum::ErrnoException(errno, "open lock " + path_);
    if (sys.flock(fd_, LOCK_EX | LOCK_NB) != 0) {
      const int err = errno;
      sys.close(fd_);
      fd_ = -1;
      if (err == EWOULDBLOCK) {
        throw Lum::Exception("agent " + std::string(agentName) + " is already running (" + path_ +
                             " is held)");
      }
      throw Lum::ErrnoException(err, "lock " + path_);
    }
    struct stat held {};
    struct stat there {};
    if (sys.fstat(fd_, &held) == 0 && sys.lstat(path_.c_str(), &there) == 0 &&
        held.st_dev == there.st_dev && held.st_ino == there.st_ino) {
      return;
    }
    sys.close(fd_);
    fd_ = -1;
  }
}

AgentLock::~AgentLock() {
  // Removed while still held (see the constructor), so that a folder does not fill with
  // the locks of every agent name ever run.
  if (fd_ < 0) return;
  Lum::sysCalls().unlink(path_.c_str());
  Lum::sysCalls().close(fd_);
}

}  // namespace Statehub
