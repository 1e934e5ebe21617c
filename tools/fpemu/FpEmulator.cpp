#include "tools/fpemu/FpEmulator.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "platform/core/Exception.h"
#include "platform/os/SysCalls.h"

namespace Fpemu {

namespace {

constexpr int kRcvBuf = 4 << 20;

sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : {SIGINT, SIGTERM, SIGUSR1}) sigaddset(&set, s);
  return set;
}

}  // namespace

FpEmulator::FpEmulator(const EmulatorConfig& config, Lum::EventLoop& loop, std::ostream& out)
    : loop_(loop),
      out_(out),
      switch_(config.ports),
      vtepAddr_(config.vtepAddr),
      vxlanUdpPort_(config.vxlanUdpPort),
      rx_(kFrameCapacity) {
  try {
    for (const PortConfig& p : config.ports) ports_.push_back(open(p.name, true));
    txRaw_ = open(config.txRawDevice, true);
    vxlan_ = open(config.vxlanDevice, false);
    watchSignals();
    for (const Socket& s : ports_) loop_.readableHandlerIs(s.fd, this);
    loop_.readableHandlerIs(txRaw_.fd, this);
    if (!config.underlayDevice.empty()) {
      underlay_ = open(config.underlayDevice, true);
      loop_.readableHandlerIs(underlay_.fd, this);
      switch_.trappedArpPortIs(config.r2lPortId);
    }
    if (!config.fabricDevice.empty()) {
      fabric_ = open(config.fabricDevice, true);
      loop_.readableHandlerIs(fabric_.fd, this);
      switch_.vniMapIs(config.vniToVlan);
    }
    loop_.readableHandlerIs(signalFd_, this);
  } catch (...) {
    closeAll();
    throw;
  }
}

FpEmulator::~FpEmulator() {
  closeAll();
}

void FpEmulator::closeAll() noexcept {
  const auto close = [this](int fd) {
    if (fd < 0) return;
    loop_.readableHandlerDel(fd);
    Lum::sysCalls().close(fd);
  };
  for (const Socket& s : ports_) close(s.fd);
  for (int fd : {vxlan_.fd, txRaw_.fd, underlay_.fd, fabric_.fd, signalFd_}) close(fd);
  ports_.clear();
  vxlan_ = txRaw_ = underlay_ = fabric_ = Socket{};
  signalFd_ = -1;
}

FpEmulator::Socket FpEmulator::open(const std::string& device, bool receiving) {
  Lum::SysCalls& sys = Lum::sysCalls();
  Socket s;
  // Opened deaf (protocol 0) and bound to the device with its protocol only when set
  // up: no frame of another device is ever queued. A send-only socket stays deaf.
  s.fd = sys.socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (s.fd < 0) throw Lum::ErrnoException(errno, "packet socket for " + device);
  s.ifIndex = sys.ifNameToIndex(device.c_str());
  const int on = 1;
  int rc = s.ifIndex == 0 ? -1 : 0;
  if (rc == 0 && receiving) {
    rc = sys.setsockopt(s.fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on);
    if (rc == 0) rc = sys.setsockopt(s.fd, SOL_SOCKET, SO_RCVBUF, &kRcvBuf, sizeof kRcvBuf);
    // Older kernels lack it; the packet type check in drain() does the same.
    if (rc == 0) sys.setsockopt(s.fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
  }
  if (rc == 0) {
    sockaddr_ll ll;
    std::memset(&ll, 0, sizeof ll);
    ll.sll_family = AF_PACKET;
    ll.sll_protocol = receiving ? htons(ETH_P_ALL) : 0;
    ll.sll_ifindex = static_cast<int>(s.ifIndex);
    rc = sys.bind(s.fd, reinterpret_cast<const sockaddr*>(&ll), sizeof ll);
  }
  if (rc != 0) {
    const int err = errno;
    sys.close(s.fd);
    throw Lum::ErrnoException(err, "device " + device);
  }
  return s;
}

void FpEmulator::watchSignals() {
  // Blocked for the whole process, read from the descriptor instead: no handler runs
  // between two statements of a frame. (No SysCalls door exists for these two.)
  const sigset_t set = handledSignals();
  if (::sigprocmask(SIG_BLOCK, &set, nullptr) != 0) {
    throw Lum::ErrnoException(errno, "sigprocmask");
  }
  signalFd_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signalFd_ < 0) throw Lum::ErrnoException(errno, "signalfd");
}

void FpEmulator::readSignals() {
  signalfd_siginfo info;
  while (Lum::sysCalls().read(signalFd_, &info, sizeof info).rc == sizeof info) {
    if (info.ssi_signo == SIGUSR1) {
      counters().print(out_);
    } else {
      loop_.stop();
    }
  }
}

template <class Take>
void FpEmulator::drain(const Socket& s, Take&& take) {
  Lum::SysCalls& sys = Lum::sysCalls();
  for (int i = 0; i < kBurst; ++i) {
    sockaddr_ll from;
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(tpacket_auxdata))];
    iovec iov{rx_.data() + kTagLen, rx_.size() - kTagLen};
    msghdr msg{};
    msg.msg_name = &from;
    msg.msg_namelen = sizeof from;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    const ssize_t n = sys.recvmsg(s.fd, &msg, MSG_DONTWAIT);
    if (n < 0) {
      if (errno != EAGAIN && errno != EINTR) switch_.counters().add(Counter::readErrors);
      return;
    }
    if (from.sll_pkttype == PACKET_OUTGOING) continue;
    if (msg.msg_flags & MSG_TRUNC) {
      switch_.counters().add(Counter::readErrors);
      continue;
    }
    std::span<uint8_t> frame(rx_.data() + kTagLen, static_cast<size_t>(n));
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
      tpacket_auxdata aux;
      std::memcpy(&aux, CMSG_DATA(c), sizeof aux);
      if (aux.tp_status & TP_STATUS_VLAN_VALID) {
        const uint16_t tpid =
            (aux.tp_status & TP_STATUS_VLAN_TPID_VALID) ? aux.tp_vlan_tpid : kTpidDot1q;
        frame = withTagRestored(rx_, frame.size(), tpid, aux.tp_vlan_tci);
      }
    }
    take(std::span<const uint8_t>(frame));
  }
}

void FpEmulator::send(const Socket& s, std::span<const uint8_t> frame, Counter sent) {
  const ssize_t n = Lum::sysCalls().send(s.fd, frame.data(), frame.size(), 0);
  switch_.counters().add(n == static_cast<ssize_t>(frame.size()) ? sent : Counter::sendErrors);
}

void FpEmulator::deliver(const Decision& d, std::span<const uint8_t> frame, size_t fromPort) {
  if (d.toAgent) {
    localFrameOf(frame, d.in, ports_[fromPort].ifIndex, tx_);
    send(vxlan_, tx_, Counter::agentTxFrames);
  }
  for (int p : d.ports) {
    const auto i = static_cast<size_t>(p);
    egressOf(switch_.ports()[i], d.vlan, d.inner, tx_);
    send(ports_[i], tx_, Counter::portTxFrames);
  }
}

void FpEmulator::onReadable(int fd) {
  if (fd == signalFd_) {
    readSignals();
    return;
  }
  if (fd == txRaw_.fd) {
    drain(txRaw_, [this](std::span<const uint8_t> f) { deliver(switch_.fromTxRaw(f), f, 0); });
    return;
  }
  if (fd == fabric_.fd) {
    drain(fabric_, [this](std::span<const uint8_t> f) { deliver(switch_.fromFabric(f), f, 0); });
    return;
  }
  if (fd == underlay_.fd) {
    drain(underlay_, [this](std::span<const uint8_t> f) {
      Counters& c = switch_.counters();
      c.add(Counter::underlayRxFrames);
      if (!overlayArpTrapped(f, vtepAddr_, vxlanUdpPort_, trapped_)) return;
      c.add(Counter::overlayArpTrapped);
      send(vxlan_, trapped_, Counter::agentTxFrames);
    });
    return;
  }
  for (size_t i = 0; i < ports_.size(); ++i) {
    if (ports_[i].fd != fd) continue;
    drain(ports_[i], [this, i](std::span<const uint8_t> f) {
      deliver(switch_.fromPort(static_cast<int>(i), f), f, i);
    });
    return;
  }
}

}  // namespace Fpemu
