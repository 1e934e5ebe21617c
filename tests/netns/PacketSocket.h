// TestSupport::PacketSocket: a raw AF_PACKET socket on one device of a test network
// namespace, for writing whole Ethernet frames into a device and reading what the
// kernel delivers on it.
//
//   TestSupport::PacketSocket peer(ns, "txraw-p", PacketSocket::Mode::capture);
//   TestSupport::PacketSocket(ns, "txraw", PacketSocket::Mode::sendOnly).send(frame);
//   auto got = peer.receive([](const Frame& f) { return ...; }, std::chrono::seconds(2));
//
// The socket is made inside the namespace (the calling thread moves there and back)
// and bound to the device there, so it never sees or sends on the host's devices.
// A capture socket sees every Ethernet type, and only frames that arrive on the
// device: frames the socket or the namespace sends out of it are skipped. receive()
// waits at most the given time; open the capture socket before causing the traffic.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

using Frame = std::vector<uint8_t>;

class PacketSocket {
 public:
  enum class Mode { capture, sendOnly };

  // Throws Lum::ErrnoException naming the failed step.
  PacketSocket(const std::string& netns, const std::string& device, Mode mode);
  ~PacketSocket();
  PacketSocket(const PacketSocket&) = delete;
  PacketSocket& operator=(const PacketSocket&) = delete;

  // Writes `frame` as it is (MAC addresses first) to the device; throws on failure.
  void send(const Frame& frame);
  // The first incoming frame for which `match` holds; empty when none came within
  // `timeout`.
  std::optional<Frame> receive(const std::function<bool(const Frame&)>& match,
                               std::chrono::milliseconds timeout);

 private:
  int fd_ = -1;
  int ifindex_ = 0;
};

}  // namespace TestSupport
