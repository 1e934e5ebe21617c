// Vxlan::ArpReplyReplicationVrfSm::LumIpIntfStatus: the capture of ARP replies on one
// routed VLAN interface ("vlan<id>" in the VRF's namespace).
//
// A capture is wanted while the interface has a virtual address and the virtual
// router MAC is known. It is a classic socket filter compiled with libpcap from
//   arp and ether dst host <virtual MAC>                                MLAG 0 or 1
//   arp and ( ether dst host <virtual MAC> or ether dst host <bridge MAC>)  otherwise
// (with an MLAG peer, replies to the switch's own MAC are taken too; the expressions
// are the operators' vocabulary, blanks included) installed on an EthDevPam of the
// interface. Three states: no capture (expression empty, PAM disabled); wanted but not
// in force (expression set, not installed: the device was missing, and the clock tries
// again every `bpfInstallRetryInterval`); in force (installed, PAM enabled). A change
// of expression first installs the stop-all program, so nothing of the old one is
// taken in between. A filter that does not compile leaves the interface without
// capture until the next change of address, MAC or MLAG state.
//
// What the filter lets through is read by handleArpReplyRxReadable (ArpReplyReceive.cpp).
#pragma once

#include <linux/filter.h>

#include <string>

#include "frames/EthArpIpHdr.h"
#include "platform/wire/EthDevPam.h"
#include "varp/ArpReplyReplicationVrfSm.h"

namespace Vxlan {

// The filter expression for an interface, empty when no capture is wanted.
std::string arpReplyBpfExpression(Wire::IpAddr virtualAddr, Wire::EthAddr varpMac,
                                  Mlag::MlagState mlagState, Wire::EthAddr bridgeMac);

// The checks of a captured frame: where its ARP header is, or why it is dropped.
struct ArpReplyFrame {
  bool ok = false;
  uint32_t arpOffset = 0;
  VarpCounterId drop = VarpCounterId::rxTooShort;
  const char* why = "";
  // Drops of a frame shorter than its headers are dumped to the trace.
  bool dump = false;
};
ArpReplyFrame checkArpReplyFrame(const uint8_t* data, uint32_t len);

class ArpReplyReplicationVrfSm::LumIpIntfStatus : public Ip::IpIntfStatus::NotifieeConst {
 public:
  class LumMlagStatus : public Lum::NestedReactor<LumIpIntfStatus, Mlag::Status::NotifieeConst> {
   public:
    void onMlagState() override { s()->handleMlagStatus(); }
    void onPeerLinkIntf() override { s()->handleMlagStatus(); }
    void onNotifier() override { s()->handleMlagStatus(); }
  };
  class LumClock : public Lum::NestedReactor<LumIpIntfStatus, Lum::Clock::NotifieeConst> {
   public:
    void onTime() override { s()->handleActiveVirtualAddrMask(); }
  };
  class LumArpReplyRxPam : public Lum::NestedReactor<LumIpIntfStatus, Wire::Pam::NotifieeConst> {
   public:
    void onReadableCount() override { s()->handleArpReplyRxReadable(); }
    void onNotifier() override { s()->handleArpReplyRxReadable(); }
  };

  LumIpIntfStatus(const Lum::Ptr<const Ip::IpIntfStatus>& status, ArpReplyReplicationVrfSm* owner);
  static Wire::IntfId lumKeyOf(const Lum::Ptr<const Ip::IpIntfStatus>& s) { return s->intfId(); }
  void parentIs(ArpReplyReplicationVrfSm* owner) { owner_ = owner; }

  const Wire::IntfId& intfId() const { return intfId_; }
  const std::string& bpfExpression() const { return bpfExpression_; }
  void bpfExpressionIs(const std::string& expression) { bpfExpression_ = expression; }
  bool bpfInstalled() const { return bpfInstalled_; }
  double bpfInstallRetryInterval() const { return bpfInstallRetryInterval_; }
  void bpfInstallRetryIntervalIs(double seconds) { bpfInstallRetryInterval_ = seconds; }
  bool initialized() const { return initialized_; }
  Wire::EthDevPam* arpReplyRxPam() const { return arpReplyRxPam_.ptr(); }
  LumClock* clockReactor() const { return clock_.get(); }

  void handleInitialized();
  void onActiveVirtualAddrWithMask() override { handleActiveVirtualAddrMask(); }
  void handleActiveVirtualAddrMask();
  void handleMlagStatus();
  // Installs the program of `bpfExpression` and enables the PAM, or takes the capture
  // away when the expression is empty.
  void addRemoveBpfFilter();
  // One packet that the filter let through.
  void handleArpReplyRxReadable();
  void handleArpReplyPkt(const Lum::Ptr<Wire::Pkt>& pkt);
  void doPrepareToDie() override;

  // The program that takes nothing: return 0.
  static constexpr sock_filter kStopAll = {0x0006, 0, 0, 0};

 private:
  bool isVlanIntf() const { return vlanId_ != 0; }
  // Compiles the expression and installs it; false when it does not compile.
  bool installCompiled();
  void enablePam();
  void varpCounterInc(VarpCounterId id) const;

  ArpReplyReplicationVrfSm* owner_;
  Wire::IntfId intfId_;
  uint16_t vlanId_ = 0;
  std::string bpfExpression_;
  bool bpfInstalled_ = false;
  double bpfInstallRetryInterval_ = 1.0;
  bool initialized_ = false;
  Lum::Ptr<Wire::EthDevPam> arpReplyRxPam_;
  Lum::Nested<LumMlagStatus> mlagStatus_{this};
  Lum::Nested<LumClock> clock_{this};
  Lum::Nested<LumArpReplyRxPam> arpReplyRxPamReactor_{this};
};

}  // namespace Vxlan
