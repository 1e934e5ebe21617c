#include "platform/wire/EthDevPam.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include <cerrno>
#include <string>

#include "platform/core/Exception.h"
#include "platform/os/InterfaceRequest.h"
#include "platform/os/NetnsSocket.h"
#include "platform/os/SysCalls.h"

namespace Wire {

namespace {

// Below this an Ethernet type field is an 802.3 length.
constexpr uint16_t kMinEthType = 0x0600;
// Accept the whole frame.
constexpr uint32_t kWholeFrame = 0xffffffff;

bool isLengthType(uint16_t protocol) {
  return protocol != 0 && protocol != ETH_P_ALL && protocol < kMinEthType;
}

}  // namespace

const Lum::TypeInfo& EthDevPam::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Wire::EthDevPam", "Wire::Pam")
        .attribute("perIntfSocket", kPerIntfSocket,
                   Lum::textAttr<&EthDevPam::perIntfSocket, &EthDevPam::perIntfSocketIs>())
        .attribute("ethProtocol", kEthProtocol,
                   Lum::textAttr<&EthDevPam::ethProtocol, &EthDevPam::ethProtocolIs>())
        .attribute("maxRxPktData", kMaxRxPktData,
                   Lum::textAttr<&EthDevPam::maxRxPktData, &EthDevPam::maxRxPktDataIs>())
        .attribute("netNs", kNetNs, Lum::textAttr<&EthDevPam::netNs, &EthDevPam::netNsIs>())
        .attribute("ifIndex", kIfIndex, Lum::textAttr<&EthDevPam::ifIndex>())
        .attribute("enabled", kEnabled, Lum::textAttr<&EthDevPam::enabled, &EthDevPam::enabledIs>())
        .attribute("nonBlocking", kNonBlocking,
                   Lum::textAttr<&EthDevPam::nonBlocking, &EthDevPam::nonBlockingIs>()));

EthDevPam::EthDevPam(const Lum::Name& device, Lum::EventLoop& loop) : Pam(device, loop) {}

Lum::Ptr<EthDevPam> EthDevPam::EthDevPamIs(const Lum::Name& device) {
  return Lum::Ptr<EthDevPam>(new EthDevPam(device));
}

EthDevPam::~EthDevPam() {
  close();
}

void EthDevPam::perIntfSocketIs(bool v) {
  if (!v) Lum::throwRangeException("EthDevPam::perIntfSocket false is not supported");
}

void EthDevPam::ethProtocolIs(uint16_t protocol) {
  if (protocol == ethProtocol_) return;
  ethProtocol_ = protocol;
  reopen();
}

void EthDevPam::netNsIs(const NamespaceName& ns) {
  if (ns == netNs_) return;
  netNs_ = ns;
  reopen();
}

void EthDevPam::enabledIs(bool v) {
  if (v == enabled()) return;
  if (v) {
    open();
  } else {
    close();
  }
}

void EthDevPam::nonBlockingIs(bool v) {
  nonBlocking_ = v;
  if (enabled()) applyNonBlocking();
}

void EthDevPam::filterProgramIs(uint16_t count, const sock_filter* insns) {
  if (count > kMaxFilterInsns) {
    Lum::throwRangeException("EthDevPam::filterProgram of " + std::to_string(count) +
                             " instructions, more than " + std::to_string(kMaxFilterInsns));
  }
  filter_.assign(insns, insns + count);
  if (enabled()) attachFilter(false);
}

uint16_t EthDevPam::bindProtocol(uint16_t protocol) {
  return htons(isLengthType(protocol) ? ETH_P_ALL : protocol);
}

std::vector<sock_filter> EthDevPam::composedFilter(uint16_t protocol,
                                                   const std::vector<sock_filter>& program) {
  if (!isLengthType(protocol)) return program;
  // The user's jumps are relative to their own instructions, so they stay right behind
  // the check; a frame of another type ends at the check's "ret 0".
  std::vector<sock_filter> out = {
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, protocol, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  if (program.empty()) {
    out.push_back(BPF_STMT(BPF_RET | BPF_K, kWholeFrame));
  } else {
    out.insert(out.end(), program.begin(), program.end());
  }
  return out;
}

void EthDevPam::fail(int err, const std::string& step) {
  close();
  throw Lum::ErrnoException(err, step + " for device " + std::string(name().view()));
}

void EthDevPam::open() {
  Lum::SysCalls& sys = Lum::sysCalls();
  // Protocol 0 queues nothing until the filter is on and the bind names the device:
  // no frame of another device or type can slip in before.
  fd_ = Lum::socketInNamespace(netNs_.view(), AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  const Lum::SysResult index = Lum::interfaceIndex(sys, fd_, name().view());
  if (index.failed()) {
    if (index.err != ENODEV) fail(index.err, "SIOCGIFINDEX");
    close();
    throw Lum::Exception("device " + std::string(name().view()) + " is missing in namespace \"" +
                             std::string(netNs_.view()) + "\"",
                         Lum::ExceptionId::deviceMissing);
  }
  ifIndex_ = static_cast<uint32_t>(index.rc);
#ifdef PACKET_IGNORE_OUTGOING
  // Older kernels lack the option; rxPkt drops outgoing frames by their type as well.
  const int one = 1;
  if (sys.setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one) < 0 &&
      errno != ENOPROTOOPT) {
    fail(errno, "setsockopt PACKET_IGNORE_OUTGOING");
  }
#endif
  attachFilter(true);
  applyNonBlocking();
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = bindProtocol(ethProtocol_);
  addr.sll_ifindex = static_cast<int>(ifIndex_);
  if (sys.bind(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) < 0) {
    fail(errno, "bind");
  }
  watch(fd_);
}

void EthDevPam::close() {
  if (fd_ < 0) return;
  unwatch();
  Lum::sysCalls().close(fd_);
  fd_ = -1;
}

void EthDevPam::reopen() {
  if (!enabled()) return;
  close();
  open();
}

void EthDevPam::attachFilter(bool fresh) {
  Lum::SysCalls& sys = Lum::sysCalls();
  std::vector<sock_filter> program = composedFilter(ethProtocol_, filter_);
  if (program.empty()) {
    // A new socket has nothing to remove; on an old one nothing may be attached yet,
    // and ENOENT says so. The kernel wants an int with the option, and ignores it.
    const int unused = 0;
    if (!fresh && sys.setsockopt(fd_, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused) < 0 &&
        errno != ENOENT) {
      fail(errno, "setsockopt SO_DETACH_FILTER");
    }
    return;
  }
  sock_fprog prog{static_cast<unsigned short>(program.size()), program.data()};
  if (sys.setsockopt(fd_, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog) < 0) {
    fail(errno, "setsockopt SO_ATTACH_FILTER");
  }
}

void EthDevPam::applyNonBlocking() {
  Lum::SysCalls& sys = Lum::sysCalls();
  const int flags = sys.fcntl(fd_, F_GETFL, 0);
  if (flags < 0) fail(errno, "fcntl F_GETFL");
  const int wanted = nonBlocking_ ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
  if (wanted != flags && sys.fcntl(fd_, F_SETFL, wanted) < 0) fail(errno, "fcntl F_SETFL");
}

Lum::Ptr<Pkt> EthDevPam::rxPkt() {
  if (fd_ < 0) return nullptr;
  sockaddr_ll from{};
  socklen_t fromLen = sizeof from;
  Lum::Ptr<Pkt> pkt = rxDatagram(fd_, maxRxPktData_, reinterpret_cast<sockaddr*>(&from), &fromLen);
  if (pkt && from.sll_pkttype == PACKET_OUTGOING) return nullptr;
  return pkt;
}

}  // namespace Wire
