// Statehub::ControlClient: the requester's side of the control socket, for tools and
// tests (see ControlServer.h for the protocol).
//
//   Statehub::ControlClient client("/run/vxrelay/statehub.sock");
//   nlohmann::json a = client.request({{"op", "get"}, {"path", "vxlan/status"}}, 2.0);
//
// request() blocks, so it is for a server running in another process or thread. A test
// that runs the server's loop itself sends, runs the loop, and collects the answer
// without waiting: client.send(req); loop.runOnce(...); client.answer(0).
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace Statehub {

class ControlClient {
 public:
  // Connects; throws Lum::ErrnoException when no server listens there.
  explicit ControlClient(const std::string& socketPath);
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  int descriptor() const { return fd_; }
  // Sends the request as one line.
  void send(const nlohmann::json& request);
  // Sends `text` and a newline as they are, well-formed or not.
  void sendLine(std::string_view text);
  // The next answer, waiting at most `timeoutSeconds` (0: only what has arrived);
  // empty when none came in time. Throws Lum::Exception when the server closed the
  // connection or answered with something that is not JSON.
  std::optional<nlohmann::json> answer(double timeoutSeconds);
  // send() and answer(); no answer in time is a Lum::Exception.
  nlohmann::json request(const nlohmann::json& request, double timeoutSeconds = 5.0);

 private:
  std::optional<nlohmann::json> takeLine();

  int fd_ = -1;
  std::string in_;
};

}  // namespace Statehub
