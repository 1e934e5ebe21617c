// Statehub::ControlServer: the control socket of the embedded state database. Tools
// and tests stand in for the switch's other agents through it: they write state,
// read it back and enter command requests.
//
//   Statehub::ControlServer server(em, "/run/vxrelay/statehub.sock");
//   // ... the event loop runs; the socket is removed when the server goes
//
// Protocol: a Unix stream socket; one JSON object per line in, one JSON line out per
// request, in order:
//   {"op":"apply","state":{<mount path>: {...}}}   -> {"ok":true}
//       all or nothing (see EntityManager::stateIs); paths not mounted yet are kept and
//       listed in "pending" when there are any
//   {"op":"get","path":"<path>"}                    -> {"ok":true,"state":{...}}
//   {"op":"command","path":"<Dir path>","type":"vxlan","command":"<text>"}
//                                                  -> {"ok":true,"request":"<id>"}
//       enters an Agent::AgentCommandRequest named by a fresh id into the Lum::Dir
//   anything refused or malformed                  -> {"ok":false,"error":"<text>"}
//
// Each request is handled in a reaction of its own on the event loop, and its answer is
// written by the deferred work queued after it, so every reaction to the change has
// run, including reactions queued on activities, before the requester hears "ok".
// Clients are served one request at a time each, many clients side by side. A client
// that closes its sending side still gets the answers to the lines it sent; one that
// goes away, stops reading its answers for long, or sends a line longer than
// kMaxLine is dropped without affecting anyone else.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/loop/EventLoop.h"
#include "platform/statehub/ControlRequests.h"
#include "platform/statehub/EntityManager.h"

namespace Statehub {

class ControlServer : private Lum::ReadableHandler, private Lum::TimerHandler {
 public:
  static constexpr size_t kMaxLine = 4 << 20;
  // Clients served side by side. A new client beyond this pushes out the one idle the
  // longest, or is turned away when every client has a request under way.
  static constexpr size_t kMaxClients = 64;
  // How long the server waits for a client to make room for an answer.
  static constexpr int kSendWaitMillis = 1000;

  // Who may talk to the server: the server's own user and root always; the members of
  // `group` too when one is given (the socket is then 0660 and of that group, else
  // 0600). A client of anyone else is closed unanswered.
  struct Access {
    std::optional<gid_t> group;
  };

  // Listens at `socketPath`; a socket file left there by a server that is gone is
  // replaced, a live one is not (ErrnoException EADDRINUSE). The manager must outlive
  // the server.
  ControlServer(EntityManager& em, std::string socketPath, Lum::EventLoop& loop = Lum::eventLoop(),
                Access access = {});
  ~ControlServer() override;
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  const std::string& socketPath() const { return path_; }
  size_t clients() const { return clients_.size(); }

 private:
  struct Client {
    int fd = -1;
    std::string in;        // bytes received; those before `taken` are handled
    size_t taken = 0;      // lines are taken by moving this, not by erasing the front
    bool busy = false;     // a request is being handled or answered
    bool eof = false;      // the client sends no more
    bool watching = true;  // registered with the loop for reading
  };

  void onReadable(int fd) override;
  // Listening again after a pause for want of descriptors.
  void onTimer() override;
  std::string_view facility() const override { return "Statehub::ControlServer"; }
  // How long listening pauses when not even a spare descriptor is left.
  static constexpr double kRelistenPause = 0.1;
  void acceptClients();
  // Whether the peer of a new connection may use the server.
  bool mayConnect(int fd) const;
  // Sheds one pending connection when the process is out of descriptors, so that the
  // level-triggered listening socket does not stay readable for good.
  void shedConnection();
  // Makes room for one more client; false when none can go.
  bool roomForClient();
  void readClient(uint64_t id, Client& c);
  // The bytes received and not yet handled.
  static size_t unhandled(const Client& c) { return c.in.size() - c.taken; }
  void next(uint64_t id, Client& c);
  void handleNext(uint64_t id);
  void write(uint64_t id, const std::string& text);
  void watchIs(Client& c, bool on);
  void drop(uint64_t id, std::string_view why);
  Client* client(uint64_t id);
  ControlRequests requests_;
  Access access_;
  std::string path_;
  Lum::EventLoop* loop_;
  int listenFd_ = -1;
  // Held open for shedConnection(): freeing it lets one accept through to be closed.
  int spareFd_ = -1;
  Lum::EventLoop::Timer relisten_;
  std::map<uint64_t, Client> clients_;  // by an id never reused, unlike descriptors
  std::map<int, uint64_t> idOfFd_;
  uint64_t lastClientId_ = 0;
  // Deferred work holds a weak reference: work left on the loop when the server goes
  // finds it expired and does nothing.
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

}  // namespace Statehub
