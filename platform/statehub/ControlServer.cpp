#include "platform/statehub/ControlServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/core/Dir.h"
#include "platform/os/SysCalls.h"
#include "platform/os/TimeSource.h"
#include "platform/statehub/DocumentText.h"
#include "platform/status/agent/AgentCommandRequest.h"
#include "platform/trace/Trace.h"

namespace Statehub {

using nlohmann::json;

namespace {

Lum::TraceFacility& traceControl = Lum::traceFacility("StatehubControl");

sockaddr_un unixAddress(const std::string& path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof addr.sun_path) {
    Lum::throwRangeException("control socket path \"" + path + "\" is empty or too long");
  }
  std::memcpy(addr.sun_path, path.data(), path.size());
  return addr;
}

// A socket file that no one accepts on is left by a server that is gone.
bool staleSocket(const sockaddr_un& addr) {
  struct stat st {};
  if (::lstat(addr.sun_path, &st) != 0 || !S_ISSOCK(st.st_mode)) return false;
  Lum::SysCalls& sys = Lum::sysCalls();
  const int probe = sys.socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (probe < 0) return false;
  const bool refused =
      sys.connect(probe, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0 &&
      errno == ECONNREFUSED;
  sys.close(probe);
  return refused;
}

}  // namespace

ControlServer::ControlServer(EntityManager& em, std::string socketPath, Lum::EventLoop& loop,
                             Access access)
    : requests_(em),
      access_(access),
      path_(std::move(socketPath)),
      loop_(&loop),
      relisten_(*this, loop) {
  const sockaddr_un addr = unixAddress(path_);
  const auto* sa = reinterpret_cast<const sockaddr*>(&addr);
  Lum::SysCalls& sys = Lum::sysCalls();
  listenFd_ = sys.socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0) throw Lum::ErrnoException(errno, "control socket");
  bool bound = false;
  try {
    if (sys.bind(listenFd_, sa, sizeof addr) != 0) {
      const int err = errno;
      if (err != EADDRINUSE || !staleSocket(addr)) {
        throw Lum::ErrnoException(err, "bind control socket " + path_);
      }
      sys.unlink(path_.c_str());
      if (sys.bind(listenFd_, sa, sizeof addr) != 0) {
        throw Lum::ErrnoException(errno, "bind control socket " + path_);
      }
    }
    bound = true;
    // The mode is the server's, not the umask's; nobody can connect before listen().
    if (access_.group && ::chown(path_.c_str(), static_cast<uid_t>(-1), *access_.group) != 0) {
      throw Lum::ErrnoException(errno, "chown control socket " + path_);
    }
    if (sys.chmod(path_.c_str(), access_.group ? 0660 : 0600) != 0) {
      throw Lum::ErrnoException(errno, "chmod control socket " + path_);
    }
    if (sys.listen(listenFd_, 16) != 0) throw Lum::ErrnoException(errno, "listen " + path_);
    loop_->readableHandlerIs(listenFd_, this);
    spareFd_ = sys.open("/dev/null", O_RDONLY | O_CLOEXEC, 0);
  } catch (...) {
    sys.close(listenFd_);
    if (bound) sys.unlink(path_.c_str());
    throw;
  }
}

ControlServer::~ControlServer() {
  Lum::SysCalls& sys = Lum::sysCalls();
  for (auto& [id, c] : clients_) {
    loop_->readableHandlerDel(c.fd);
    sys.close(c.fd);
  }
  loop_->readableHandlerDel(listenFd_);
  sys.close(listenFd_);
  if (spareFd_ >= 0) sys.close(spareFd_);
  sys.unlink(path_.c_str());
}

ControlServer::Client* ControlServer::client(uint64_t id) {
  auto it = clients_.find(id);
  return it == clients_.end() ? nullptr : &it->second;
}

void ControlServer::onReadable(int fd) {
  if (fd == listenFd_) return acceptClients();
  auto it = idOfFd_.find(fd);
  if (it == idOfFd_.end()) return;
  const uint64_t id = it->second;
  readClient(id, clients_.at(id));
}

void ControlServer::acceptClients() {
  for (;;) {
    const int fd =
        Lum::sysCalls().accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      const int err = errno;
      if (err == EINTR || err == ECONNABORTED) continue;
      if (err == EMFILE || err == ENFILE) return shedConnection();
      if (err != EAGAIN && err != EWOULDBLOCK) {
        LUM_TRACE(traceControl, 1, "accept: " << std::strerror(err));
      }
      return;
    }
    if (!mayConnect(fd)) {
      Lum::sysCalls().close(fd);
      continue;
    }
    if (!roomForClient()) {
      LUM_TRACE(traceControl, 1, "client refused: " << kMaxClients << " clients busy");
      Lum::sysCalls().close(fd);
      continue;
    }
    const uint64_t id = ++lastClientId_;
    Client& c = clients_[id];
    c.fd = fd;
    idOfFd_[fd] = id;
    loop_->readableHandlerIs(fd, this);
    LUM_TRACE(traceControl, 5, "client " << id << " on descriptor " << fd);
  }
}

bool ControlServer::mayConnect(int fd) const {
  ucred peer{};
  socklen_t len = sizeof peer;
  if (Lum::sysCalls().getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) != 0) return false;
  // With a group, the socket's mode let only its members (and owner and root) connect.
  const bool allowed = peer.uid == ::geteuid() || peer.uid == 0 || access_.group.has_value();
  if (!allowed) {
    LUM_TRACE(traceControl, 1, "client of uid " << peer.uid << " pid " << peer.pid << " refused");
  }
  return allowed;
}

void ControlServer::shedConnection() {
  Lum::SysCalls& sys = Lum::sysCalls();
  LUM_TRACE(traceControl, 1, "out of descriptors: a connection is closed unserved");
  if (spareFd_ >= 0) {
    sys.close(spareFd_);
    spareFd_ = -1;
  }
  const int fd = sys.accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd >= 0) sys.close(fd);
  spareFd_ = sys.open("/dev/null", O_RDONLY | O_CLOEXEC, 0);
  // Without a spare and still out of descriptors the connection cannot be taken off
  // the queue: stop listening for a moment rather than wake on it for ever.
  if (fd < 0 && spareFd_ < 0) {
    loop_->readableHandlerDel(listenFd_);
    relisten_.arm(Lum::now() + kRelistenPause);
  }
}

void ControlServer::onTimer() {
  if (spareFd_ < 0) spareFd_ = Lum::sysCalls().open("/dev/null", O_RDONLY | O_CLOEXEC, 0);
  loop_->readableHandlerIs(listenFd_, this);
}

bool ControlServer::roomForClient() {
  if (clients_.size() < kMaxClients) return true;
  // Ids grow with every client: the first idle one in id order is the oldest.
  for (auto& [id, c] : clients_) {
    if (!c.busy) {
      drop(id, "pushed out by a newer client");
      return true;
    }
  }
  return false;
}

void ControlServer::watchIs(Client& c, bool on) {
  if (c.watching == on) return;
  c.watching = on;
  if (on) {
    loop_->readableHandlerIs(c.fd, this);
  } else {
    loop_->readableHandlerDel(c.fd);
  }
}

void ControlServer::readClient(uint64_t id, Client& c) {
  char buf[65536];
  const Lum::SysResult r = Lum::sysCalls().recv(c.fd, buf, sizeof buf, 0);
  if (r.failed()) {
    if (r.err == EAGAIN || r.err == EWOULDBLOCK || r.err == EINTR) return;
    return drop(id, std::strerror(r.err));
  }
  const size_t n = static_cast<size_t>(r.rc);
  if (n == 0) {
    // Level-triggered, an end of file would wake the loop on every pass.
    c.eof = true;
    watchIs(c, false);
  } else {
    // The handled front goes once it is most of the buffer, so that a burst of short
    // lines costs linear time, not a move of the rest per line.
    if (c.taken > 0 && c.taken >= unhandled(c)) {
      c.in.erase(0, c.taken);
      c.taken = 0;
    }
    c.in.append(buf, n);
  }
  next(id, c);
}

// Starts on the next complete line when the client is not busy. A client holding
// more than a line's worth of unhandled requests is not read until it is served.
void ControlServer::next(uint64_t id, Client& c) {
  if (!c.eof) watchIs(c, unhandled(c) <= kMaxLine);
  if (c.busy) return;
  if (c.in.find('\n', c.taken) != std::string::npos) {
    c.busy = true;
    std::weak_ptr<int> alive = alive_;
    loop_->defer(
        [this, alive, id] {
          if (!alive.expired()) handleNext(id);
        },
        "Statehub::ControlServer");
  } else if (c.eof) {
    drop(id, "closed by the client");
  } else if (unhandled(c) > kMaxLine) {
    drop(id, "request line too long");
  }
}

void ControlServer::handleNext(uint64_t id) {
  Client* c = client(id);
  if (!c) return;
  // Blank lines ask nothing: they are passed over here, all in one go.
  std::string_view line;
  for (;;) {
    const size_t end = c->in.find('\n', c->taken);
    if (end == std::string::npos) {
      c->busy = false;
      return next(id, *c);
    }
    line = std::string_view(c->in).substr(c->taken, end - c->taken);
    c->taken = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.find_first_not_of(" \t") != std::string_view::npos) break;
  }
  const std::string text = DocumentText::dump(requests_.answerOf(line, c->fd)) + "\n";
  std::weak_ptr<int> alive = alive_;
  loop_->defer(
      [this, alive, id, text] {
        if (!alive.expired()) write(id, text);
      },
      "Statehub::ControlServer");
}

void ControlServer::write(uint64_t id, const std::string& text) {
  Client* c = client(id);
  if (!c) return;
  Lum::SysCalls& sys = Lum::sysCalls();
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n =
        sys.send(c->fd, text.data() + done, text.size() - done, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n >= 0) {
      done += static_cast<size_t>(n);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return drop(id, std::strerror(errno));
    // A full socket buffer: a large answer, or a client that does not read.
    pollfd p{c->fd, POLLOUT, 0};
    if (::poll(&p, 1, kSendWaitMillis) <= 0) return drop(id, "client does not read its answers");
  }
  c->busy = false;
  next(id, *c);
}

void ControlServer::drop(uint64_t id, std::string_view why) {
  Client* c = client(id);
  if (!c) return;
  LUM_TRACE(traceControl, 5, "client " << id << " dropped: " << why);
  if (c->watching) loop_->readableHandlerDel(c->fd);
  Lum::sysCalls().close(c->fd);
  idOfFd_.erase(c->fd);
  clients_.erase(id);
}

}  // namespace Statehub
