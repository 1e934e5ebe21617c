#include "platform/wire/UdpPam.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/core/Exception.h"
#include "platform/os/NetnsSocket.h"
#include "platform/os/SysCalls.h"

namespace Wire {

const Lum::TypeInfo& UdpPam::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Wire::UdpPam", "Wire::Pam")
        .attribute("mode", kMode, Lum::textAttr<&UdpPam::mode, &UdpPam::modeIs>())
        .attribute("netNs", kNetNs, Lum::textAttr<&UdpPam::netNs, &UdpPam::netNsIs>())
        .attribute("txDstIpAddr", kTxDstIpAddr,
                   Lum::textAttr<&UdpPam::txDstIpAddr, &UdpPam::txDstIpAddrIs>())
        .attribute("txSrcIpAddr", kTxSrcIpAddr,
                   Lum::textAttr<&UdpPam::txSrcIpAddr, &UdpPam::txSrcIpAddrIs>())
        .attribute("txPort", kTxPort, Lum::textAttr<&UdpPam::txPort, &UdpPam::txPortIs>())
        .attribute("rxPortLocal", kRxPortLocal,
                   Lum::textAttr<&UdpPam::rxPortLocal, &UdpPam::rxPortLocalIs>())
        .attribute("maxRxPktData", kMaxRxPktData,
                   Lum::textAttr<&UdpPam::maxRxPktData, &UdpPam::maxRxPktDataIs>())
        .attribute("txPkts", kTxPkts, Lum::textAttr<&UdpPam::txPkts>())
        .attribute("rxPkts", kRxPkts, Lum::textAttr<&UdpPam::rxPkts>())
        .attribute("rxSrcIpAddr", kRxSrcIpAddr, Lum::textAttr<&UdpPam::rxSrcIpAddr>())
        .attribute("rxSrcPort", kRxSrcPort, Lum::textAttr<&UdpPam::rxSrcPort>())
        .attribute("fileDesc", kFileDesc, Lum::textAttr<&UdpPam::fileDesc>()));

UdpPam::UdpPam(const Lum::Name& name, Lum::EventLoop& loop) : Pam(name, loop) {}

UdpPam::~UdpPam() {
  close();
}

void UdpPam::modeIs(uint8_t mode) {
  if (mode != kModeOff && mode != kModeTx && mode != kModeTxRx) {
    Lum::throwRangeException("UdpPam::mode " + std::to_string(mode) + " is not 0, 1 or 3");
  }
  if (mode == mode_) return;
  close();
  if (mode != kModeOff) open(mode);
}

void UdpPam::netNsIs(const NamespaceName& ns) {
  if (ns == netNs_) return;
  netNs_ = ns;
  if (mode_ == kModeOff) return;
  const uint8_t mode = mode_;
  close();
  open(mode);
}

void UdpPam::rxPortLocalIs(uint16_t port) {
  if (port == rxPortLocal_) return;
  rxPortLocal_ = port;
  if (mode_ != kModeTxRx) return;
  close();
  open(kModeTxRx);
}

void UdpPam::fail(int err, const std::string& step) {
  close();
  throw Lum::ErrnoException(err, step + " for " + std::string(name().view()));
}

void UdpPam::open(uint8_t mode) {
  Lum::SysCalls& sys = Lum::sysCalls();
  fd_ =
      Lum::socketInNamespace(netNs_.view(), AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int one = 1;
  if (sys.setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) < 0) {
    fail(errno, "setsockopt SO_REUSEADDR");
  }
  if (sys.setsockopt(fd_, SOL_SOCKET, SO_BROADCAST, &one, sizeof one) < 0) {
    fail(errno, "setsockopt SO_BROADCAST");
  }
  if (mode == kModeTxRx) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    addr.sin_port = htons(rxPortLocal_);
    if (sys.bind(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) < 0) {
      fail(errno, "bind to port " + std::to_string(rxPortLocal_));
    }
    watch(fd_);
  }
  mode_ = mode;
}

void UdpPam::close() {
  mode_ = kModeOff;
  if (fd_ < 0) return;
  unwatch();
  Lum::sysCalls().close(fd_);
  fd_ = -1;
}

bool UdpPam::sendPkt(const Lum::Ptr<Pkt>& pkt) {
  if (fd_ < 0 || !pkt) {
    txDropsInc();
    errno = fd_ < 0 ? ENOTCONN : EINVAL;
    return false;
  }
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = txDstIpAddr_.value();
  to.sin_port = htons(txPort_);
  msghdr msg{};
  msg.msg_name = &to;
  msg.msg_namelen = sizeof to;
  msg.msg_iov = const_cast<iovec*>(pkt->iov());
  msg.msg_iovlen = static_cast<size_t>(pkt->iovCount());
  // The source address goes with the datagram: ipi_spec_dst is the local address the
  // kernel puts in the header, and ifindex 0 leaves the route to choose the device.
  alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
  if (!txSrcIpAddr_.isZero()) {
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    cmsghdr* c = CMSG_FIRSTHDR(&msg);
    c->cmsg_level = IPPROTO_IP;
    c->cmsg_type = IP_PKTINFO;
    c->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_spec_dst.s_addr = txSrcIpAddr_.value();
    std::memcpy(CMSG_DATA(c), &info, sizeof info);
  }
  if (Lum::sysCalls().sendmsg(fd_, &msg, 0) < 0) {
    const int err = errno;
    txErrorsInc();
    errno = err;
    return false;
  }
  ++txPkts_;
  return true;
}

Lum::Ptr<Pkt> UdpPam::rxPkt() {
  if (fd_ < 0) return nullptr;
  sockaddr_in from{};
  socklen_t fromLen = sizeof from;
  Lum::Ptr<Pkt> pkt = rxDatagram(fd_, maxRxPktData_, reinterpret_cast<sockaddr*>(&from), &fromLen);
  if (!pkt) return nullptr;
  ++rxPkts_;
  rxSrcIpAddr_ = IpAddr::fromNetworkOrder(from.sin_addr.s_addr);
  rxSrcPort_ = ntohs(from.sin_port);
  return pkt;
}

}  // namespace Wire
