// Wire::EthDevPam: a PAM that receives the Ethernet frames of one protocol arriving on
// one network device, through a packet socket bound to the device.
//
//   Lum::Ptr<Wire::EthDevPam> pam = Wire::EthDevPam::EthDevPamIs("vlan10");
//   pam->netNsIs(Wire::NamespaceName("blue"));
//   pam->ethProtocolIs(ETH_P_ARP);
//   pam->maxRxPktDataIs(1518);
//   pam->enabledIs(true);          // throws when the device is missing or a step fails
//   ... onReadableCount():  while (auto pkt = pam->rxPkt()) { ... }
//
// The PAM is named after its device. While enabled it holds one packet socket made in
// its namespace and bound to the device and the protocol; the frames the host sends
// out of the device are not delivered. A classic BPF program (filterProgramIs) further
// selects what the kernel queues; it is kept and applied on every enable.
//
// Ethernet types below 0x0600 are 802.3 lengths to the kernel, which hands such
// frames to the sockets of ETH_P_802_2, whatever their type field: a socket bound to
// one of them receives nothing. For such a protocol the socket is bound to every
// protocol (ETH_P_ALL) and its filter starts with a check of the type field at offset
// 12, followed by the user's program. ETH_P_ALL (3) itself means every frame.
#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <vector>

#include "platform/types/NamespaceName.h"
#include "platform/wire/Pam.h"

namespace Wire {

class EthDevPam : public Pam {
 public:
  enum : int {
    kPerIntfSocket = Pam::kAttrEnd,
    kEthProtocol,
    kMaxRxPktData,
    kNetNs,
    kIfIndex,
    kEnabled,
    kNonBlocking,
    kAttrEnd
  };

  explicit EthDevPam(const Lum::Name& device, Lum::EventLoop& loop = Lum::eventLoop());
  static Lum::Ptr<EthDevPam> EthDevPamIs(const Lum::Name& device);
  ~EthDevPam() override;

  // The socket is bound to this one device; there is no other kind, so false is
  // refused (a range exception).
  bool perIntfSocket() const { return true; }
  void perIntfSocketIs(bool v);
  // The Ethernet type received, in host order. A change while enabled reopens.
  uint16_t ethProtocol() const { return ethProtocol_; }
  void ethProtocolIs(uint16_t protocol);
  // The longest frame taken, from the destination address on; longer ones are dropped
  // and counted in rxErrors. At most kMaxRxData is ever taken.
  uint32_t maxRxPktData() const { return maxRxPktData_; }
  void maxRxPktDataIs(uint32_t bytes) { maxRxPktData_ = bytes; }
  // The namespace of the device; the empty name is the agent's own. A change while
  // enabled reopens.
  const NamespaceName& netNs() const { return netNs_; }
  void netNsIs(const NamespaceName& ns);
  // The device's index in its namespace, found by the last enable (0 before).
  uint32_t ifIndex() const { return ifIndex_; }

  bool enabled() const { return fd_ >= 0; }
  // Opens the socket, or closes it. A missing device raises Lum::Exception with the id
  // deviceMissing; any other failed step a Lum::ErrnoException naming it. Either way
  // nothing stays open and the PAM stays disabled.
  void enabledIs(bool v);
  bool nonBlocking() const { return nonBlocking_; }
  void nonBlockingIs(bool v);

  // Copies the program (`count` instructions, at most kMaxFilterInsns) and attaches it
  // at once when enabled; count 0 removes it. A refused attach disables the PAM and
  // raises Lum::ErrnoException.
  void filterProgramIs(uint16_t count, const sock_filter* insns);
  const std::vector<sock_filter>& filterProgram() const { return filter_; }
  // Room left for the type check in front of the user's program.
  static constexpr uint16_t kMaxFilterInsns = BPF_MAXINSNS - 3;

  // The protocol the socket is bound to (network order), and the program attached for
  // `protocol` and the user's `program` (empty: none).
  static uint16_t bindProtocol(uint16_t protocol);
  static std::vector<sock_filter> composedFilter(uint16_t protocol,
                                                 const std::vector<sock_filter>& program);

  Lum::Ptr<Pkt> rxPkt() override;

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  void open();
  void close();
  void reopen();
  // Attaches the composed program, or removes the one attached unless the socket is new.
  void attachFilter(bool fresh);
  void applyNonBlocking();
  [[noreturn]] void fail(int err, const std::string& step);

  uint16_t ethProtocol_ = 0;
  uint32_t maxRxPktData_ = kMaxRxData;
  NamespaceName netNs_;
  uint32_t ifIndex_ = 0;
  bool nonBlocking_ = true;
  std::vector<sock_filter> filter_;
  int fd_ = -1;
};

}  // namespace Wire
