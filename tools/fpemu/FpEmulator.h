// Fpemu::FpEmulator: the emulated forwarding plane on the event loop. One packet
// socket per host port and one on the emulator's end of "txraw" read frames; the
// switch (FpSwitch) decides; the frames go out on the ports' sockets and, in the
// local form, on a send-only socket on the emulator's end of "vxlan". With an underlay
// device it also traps ARP that arrives inside VXLAN for the VTEP, as a forwarding
// plane does, and hands it to the agent on "vxlan" (overlayArpTrapped).
//
// Sockets are made and used through the platform's SysCalls service. A port socket
// ignores what the emulator itself sends (PACKET_IGNORE_OUTGOING, and the packet
// type is checked as well) and asks for each frame's metadata (PACKET_AUXDATA): a tag
// that the kernel took off a received frame is put back before the frame is looked
// at. SIGINT and SIGTERM stop the loop; SIGUSR1 prints the counters. The signals are
// read from a signalfd on the same loop, so a counter is never printed mid-frame.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "tools/fpemu/FpConfig.h"
#include "tools/fpemu/FpSwitch.h"

namespace Fpemu {

class FpEmulator : private Lum::ReadableHandler {
 public:
  // Throws Lum::ErrnoException naming the device or the step that failed.
  FpEmulator(const EmulatorConfig& config, Lum::EventLoop& loop, std::ostream& out);
  ~FpEmulator() override;
  FpEmulator(const FpEmulator&) = delete;
  FpEmulator& operator=(const FpEmulator&) = delete;

  const Counters& counters() const { return switch_.counters(); }

 private:
  struct Socket {
    int fd = -1;
    uint32_t ifIndex = 0;
  };
  // A frame a little larger than the largest IPv4 packet, behind room for a tag.
  static constexpr size_t kFrameCapacity = 65536 + kTagLen;
  static constexpr int kBurst = 64;

  void onReadable(int fd) override;
  std::string_view facility() const override { return "FpEmulator"; }

  Socket open(const std::string& device, bool receiving);
  void closeAll() noexcept;
  void watchSignals();
  void readSignals();
  // Reads up to kBurst frames of `s`, each handed to `take`; stops when it is drained.
  template <class Take>
  void drain(const Socket& s, Take&& take);
  void deliver(const Decision& d, std::span<const uint8_t> frame, size_t fromPort);
  void send(const Socket& s, std::span<const uint8_t> frame, Counter sent);

  Lum::EventLoop& loop_;
  std::ostream& out_;
  FpSwitch switch_;
  std::vector<Socket> ports_;
  Socket vxlan_;
  Socket txRaw_;
  // The trap of ARP for the VTEP (closed: none), and the frame it hands on.
  Socket underlay_;
  Socket fabric_;
  uint32_t vtepAddr_;
  uint16_t vxlanUdpPort_;
  std::vector<uint8_t> trapped_;
  int signalFd_ = -1;
  std::vector<uint8_t> rx_;
  std::vector<uint8_t> tx_;
};

}  // namespace Fpemu
