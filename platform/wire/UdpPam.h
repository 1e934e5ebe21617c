// Wire::UdpPam: a PAM on a UDP socket over IPv4, which sends packets to one
// destination and, in the receiving mode, takes the datagrams sent to a local port.
//
//   Lum::Ptr<Wire::UdpPam> pam(new Wire::UdpPam("vxlan-tx"));
//   pam->netNsIs(Wire::NamespaceName("blue"));
//   pam->rxPortLocalIs(4789);
//   pam->txDstIpAddrIs(Wire::IpAddr::fromString("10.0.0.2"));
//   pam->txPortIs(4789);
//   pam->modeIs(Wire::UdpPam::kModeTxRx);   // throws when a step of the set-up fails
//   pam->sendPkt(pkt);
//
// The modes are part of the operators' vocabulary and keep their numbers: 0 off, 1
// transmit only (the socket takes an ephemeral port when it first sends), 3 transmit and
// receive on rxPortLocal (the socket is bound to every local address on that port and
// watched by the loop). Broadcast destinations are allowed.
//
// The source address of each send is txSrcIpAddr, given to the kernel with the
// datagram (IP_PKTINFO), so that changing it needs no new socket; 0 leaves it to the
// kernel. A change of netNs or rxPortLocal while open reopens the socket.
#pragma once

#include <cstdint>

#include "platform/types/IpAddr.h"
#include "platform/types/NamespaceName.h"
#include "platform/wire/Pam.h"

namespace Wire {

class UdpPam : public Pam {
 public:
  enum : int {
    kMode = Pam::kAttrEnd,
    kNetNs,
    kTxDstIpAddr,
    kTxSrcIpAddr,
    kTxPort,
    kRxPortLocal,
    kMaxRxPktData,
    kTxPkts,
    kRxPkts,
    kRxSrcIpAddr,
    kRxSrcPort,
    kFileDesc,
    kAttrEnd
  };
  static constexpr uint8_t kModeOff = 0;
  static constexpr uint8_t kModeTx = 1;
  static constexpr uint8_t kModeTxRx = 3;

  explicit UdpPam(const Lum::Name& name, Lum::EventLoop& loop = Lum::eventLoop());
  ~UdpPam() override;

  uint8_t mode() const { return mode_; }
  // Opens, reopens or closes the socket. A mode other than 0, 1 and 3 is a range
  // exception; a failed step raises Lum::ErrnoException naming it, and leaves the PAM
  // off with nothing open.
  void modeIs(uint8_t mode);
  const NamespaceName& netNs() const { return netNs_; }
  void netNsIs(const NamespaceName& ns);
  IpAddr txDstIpAddr() const { return txDstIpAddr_; }
  void txDstIpAddrIs(IpAddr a) { txDstIpAddr_ = a; }
  IpAddr txSrcIpAddr() const { return txSrcIpAddr_; }
  void txSrcIpAddrIs(IpAddr a) { txSrcIpAddr_ = a; }
  // Ports in host order.
  uint16_t txPort() const { return txPort_; }
  void txPortIs(uint16_t port) { txPort_ = port; }
  uint16_t rxPortLocal() const { return rxPortLocal_; }
  void rxPortLocalIs(uint16_t port);
  // The longest datagram taken; longer ones are dropped and counted in rxErrors.
  uint32_t maxRxPktData() const { return maxRxPktData_; }
  void maxRxPktDataIs(uint32_t bytes) { maxRxPktData_ = bytes; }

  uint64_t txPkts() const { return txPkts_; }
  uint64_t rxPkts() const { return rxPkts_; }
  // The sender of the last datagram received.
  IpAddr rxSrcIpAddr() const { return rxSrcIpAddr_; }
  uint16_t rxSrcPort() const { return rxSrcPort_; }
  // The socket, -1 when off.
  int fileDesc() const { return fd_; }

  // Sends the packet's bytes to txDstIpAddr:txPort. False with errno set when it was not
  // sent: counted in txDrops when the PAM is off (ENOTCONN) or the packet is missing
  // (EINVAL), in txErrors when the send failed.
  bool sendPkt(const Lum::Ptr<Pkt>& pkt);
  Lum::Ptr<Pkt> rxPkt() override;

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  void open(uint8_t mode);
  void close();
  [[noreturn]] void fail(int err, const std::string& step);

  uint8_t mode_ = kModeOff;
  NamespaceName netNs_;
  IpAddr txDstIpAddr_;
  IpAddr txSrcIpAddr_;
  uint16_t txPort_ = 0;
  uint16_t rxPortLocal_ = 0;
  uint32_t maxRxPktData_ = kMaxRxData;
  uint64_t txPkts_ = 0;
  uint64_t rxPkts_ = 0;
  IpAddr rxSrcIpAddr_;
  uint16_t rxSrcPort_ = 0;
  int fd_ = -1;
};

}  // namespace Wire
