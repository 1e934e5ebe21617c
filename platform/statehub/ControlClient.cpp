#include "platform/statehub/ControlClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/core/Exception.h"
#include "platform/os/SysCalls.h"

namespace Statehub {

using nlohmann::json;

ControlClient::ControlClient(const std::string& socketPath) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (socketPath.empty() || socketPath.size() >= sizeof addr.sun_path) {
    Lum::throwRangeException("control socket path \"" + socketPath + "\" is empty or too long");
  }
  std::memcpy(addr.sun_path, socketPath.data(), socketPath.size());
  Lum::SysCalls& sys = Lum::sysCalls();
  fd_ = sys.socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) throw Lum::ErrnoException(errno, "control client socket");
  if (sys.connect(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
    const int err = errno;
    sys.close(fd_);
    throw Lum::ErrnoException(err, "connect " + socketPath);
  }
}

ControlClient::~ControlClient() {
  Lum::sysCalls().close(fd_);
}

void ControlClient::send(const json& request) {
  sendLine(request.dump());
}

void ControlClient::sendLine(std::string_view text) {
  std::string line(text);
  line += '\n';
  size_t done = 0;
  while (done < line.size()) {
    const ssize_t n =
        Lum::sysCalls().send(fd_, line.data() + done, line.size() - done, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw Lum::ErrnoException(errno, "send to control socket");
    }
    done += static_cast<size_t>(n);
  }
}

std::optional<json> ControlClient::takeLine() {
  const size_t end = in_.find('\n');
  if (end == std::string::npos) return std::nullopt;
  const std::string line = in_.substr(0, end);
  in_.erase(0, end + 1);
  try {
    return json::parse(line);
  } catch (const json::exception& e) {
    throw Lum::Exception(std::string("control socket answer is not JSON: ") + e.what());
  }
}

std::optional<json> ControlClient::answer(double timeoutSeconds) {
  // Real time on purpose: tests may replace Lum::now() with a clock that stands still.
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(timeoutSeconds > 0 ? timeoutSeconds : 0));
  for (;;) {
    if (std::optional<json> a = takeLine()) return a;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd p{fd_, POLLIN, 0};
    const int ready = ::poll(&p, 1, left > 0 ? static_cast<int>(left) : 0);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) throw Lum::ErrnoException(errno, "poll control socket");
    if (ready == 0) return std::nullopt;
    char buf[65536];
    const Lum::SysResult r = Lum::sysCalls().recv(fd_, buf, sizeof buf, 0);
    if (r.failed()) {
      if (r.err == EINTR || r.err == EAGAIN) continue;
      throw Lum::ErrnoException(r.err, "read control socket");
    }
    if (r.rc == 0) throw Lum::Exception("control socket closed by the server");
    in_.append(buf, static_cast<size_t>(r.rc));
  }
}

json ControlClient::request(const json& request, double timeoutSeconds) {
  send(request);
  std::optional<json> a = answer(timeoutSeconds);
  if (!a) throw Lum::Exception("no answer from the control socket in time");
  return *a;
}

}  // namespace Statehub
