#include "varp/ArpReplyIpIntfStatus.h"

#include <pcap/pcap.h>

#include <sstream>
#include <vector>

#include "frames/EthHdr.h"
#include "platform/core/Exception.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/RingLog.h"
#include "varp/VarpTrace.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {

using Sm = ArpReplyReplicationVrfSm::LumIpIntfStatus;

#define INTF_TRACE(level, message)                                                       \
  LUM_TRACE(::Vxlan::varpTrace, level,                                                   \
            "ArpReplyReplicationVrfSm::LumIpIntfStatus::"                                \
                << LUM_TRACE_FUNCTION << " vrfName "                                     \
                << (owner_ ? owner_->vrfName() : L3::VrfName()) << " intfId " << intfId_ \
                << message)

std::string arpReplyBpfExpression(Wire::IpAddr virtualAddr, Wire::EthAddr varpMac,
                                  Mlag::MlagState mlagState, Wire::EthAddr bridgeMac) {
  if (virtualAddr.value() == 0 || varpMac == Wire::EthAddr()) return "";
  std::ostringstream e;
  e << "arp and ";
  if (mlagState == Mlag::MlagState::mlagStateDisabled ||
      mlagState == Mlag::MlagState::mlagStateInactive) {
    e << "ether dst host " << varpMac;
  } else {
    e << "( ether dst host " << varpMac << " or ether dst host " << bridgeMac << ")";
  }
  return e.str();
}

Sm::LumIpIntfStatus(const Lum::Ptr<const Ip::IpIntfStatus>& status, ArpReplyReplicationVrfSm* owner)
    : owner_(owner), intfId_(status->intfId()) {
  if (Wire::VlanIntfId::isVlanIntfId(intfId_)) {
    vlanId_ = Wire::VlanIntfId::vlanId(intfId_).value();
  }
  if (owner_) lumFwkActivityIs(owner_->lumFwkActivity());
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  handleInitialized();
}

void Sm::handleInitialized() {
  INTF_TRACE(8, "");
  if (initialized_ || !owner_ || !owner_->initialized()) return;
  if (!isVlanIntf()) {
    INTF_TRACE(1, " skipping non vlan intf " << intfId_);
    return;
  }
  clock_.is(owner_->clock());
  arpReplyRxPam_ = Wire::EthDevPam::EthDevPamIs(Lum::Name(Lum::format("vlan%d", vlanId_)));
  arpReplyRxPamReactor_.is(Lum::Ptr<const Wire::Pam>(arpReplyRxPam_));
  arpReplyRxPam_->ethProtocolIs(Wire::kEthTypeArp);
  mlagStatus_.is(owner_->mlagStatus());
  arpReplyRxPam_->netNsIs(owner_->netNs());
  initialized_ = true;
  handleActiveVirtualAddrMask();
}

void Sm::handleMlagStatus() {
  INTF_TRACE(8, "");
  handleActiveVirtualAddrMask();
}

void Sm::handleActiveVirtualAddrMask() {
  INTF_TRACE(8, "");
  if (!initialized_ || !isVlanIntf()) return;
  const Lum::Ptr<const Ip::IpIntfStatus> status = notifier();
  const Mlag::Status* mlag = mlagStatus_ ? mlagStatus_->notifier().ptr() : nullptr;
  const VirtualArpSm* varp = owner_->virtualArpSm();
  const Bridging::Config* bridging = varp ? varp->inputs().bridgingConfig.ptr() : nullptr;
  const std::string expression = arpReplyBpfExpression(
      status ? status->activeVirtualAddrWithMask().address() : Wire::IpAddr(),
      owner_->varpVirtualMac(), mlag ? mlag->mlagState() : Mlag::MlagState::mlagStateDisabled,
      bridging ? bridging->bridgeMacAddr() : Wire::EthAddr());
  if (!expression.empty()) {
    if (expression == bpfExpression_ && bpfInstalled_) return;
    INTF_TRACE(8, " setting bpf expression for " << intfId_ << " to " << expression);
    bpfExpression_ = expression;
    addRemoveBpfFilter();
  } else if (!bpfExpression_.empty()) {
    INTF_TRACE(8, " resetting bpf expression for " << intfId_);
    bpfExpression_.clear();
    addRemoveBpfFilter();
  }
}

void Sm::addRemoveBpfFilter() {
  INTF_TRACE(8, " for '" << bpfExpression_ << "'");
  RINGLOG(8, "addRemoveBpfFilter for %s", bpfExpression_.c_str());
  if (!initialized_) return;
  if (bpfExpression_.empty() || bpfInstalled_) {
    INTF_TRACE(6, " Install stop-all BPF");
    arpReplyRxPam_->filterProgramIs(1, &kStopAll);
  }
  if (bpfExpression_.empty()) {
    const Lum::Expect expected(Lum::ExceptionId::deviceMissing);
    try {
      arpReplyRxPam_->enabledIs(false);
    } catch (const Lum::Exception& e) {
      INTF_TRACE(2, " Skipping disabling pam because " << e.what());
      RINGLOG(2, " Skipping disabling repReplyRxPam because %s", e.what());
    }
    bpfInstalled_ = false;
    return;
  }
  if (installCompiled()) enablePam();
}

bool Sm::installCompiled() {
  pcap_t* handle = pcap_open_dead(DLT_EN10MB, 65535);
  if (!handle) return false;
  bpf_program prog{};
  if (pcap_compile(handle, &prog, bpfExpression_.c_str(), 0, 0) < 0) {
    INTF_TRACE(1, " Compiling pcap for '" << bpfExpression_
                                          << "' failed with error: " << pcap_geterr(handle));
    RINGLOG(1, "Compiling pcap for '%s' failed with error: %s", bpfExpression_.c_str(),
            pcap_geterr(handle));
    pcap_close(handle);
    return false;
  }
  INTF_TRACE(8, " prog.bf_len is: " << prog.bf_len);
  std::vector<sock_filter> insns(prog.bf_len, sock_filter{});
  for (u_int i = 0; i < prog.bf_len; ++i) {
    const bpf_insn& in = prog.bf_insns[i];
    insns[i] = sock_filter{in.code, in.jt, in.jf, in.k};
    LUM_TRACE(varpTrace, 7,
              Lum::format("  { %#4x, %2d, %2d, 0x%08x }", in.code, in.jt, in.jf, in.k));
  }
  bool installed = true;
  try {
    arpReplyRxPam_->filterProgramIs(static_cast<uint16_t>(insns.size()), insns.data());
  } catch (const Lum::Exception& e) {
    // Refused by the kernel: the PAM is closed; the next change tries again.
    INTF_TRACE(1, " filter not attached: " << e.what());
    installed = false;
  }
  pcap_freecode(&prog);
  pcap_close(handle);
  return installed;
}

void Sm::enablePam() {
  const Lum::Expect expected(Lum::ExceptionId::deviceMissing);
  try {
    arpReplyRxPam_->enabledIs(true);
    bpfInstalled_ = true;
    INTF_TRACE(7, " Installed bpf filter for " << intfId_);
    RINGLOG(7, " Installed bpf filter for %s", intfId_.stringValue().charPtr());
  } catch (const Lum::Exception& e) {
    // The device is not there (yet): the clock tries again.
    INTF_TRACE(2, " Skipping enabledIs because " << intfId_ << " disappeared");
    RINGLOG(2, " Skipping enabledIs because %s disappeared", intfId_.stringValue().charPtr());
    if (clock_) clock_->timeMinIs(Lum::now() + bpfInstallRetryInterval_);
  }
}

void Sm::doPrepareToDie() {
  INTF_TRACE(8, "");
  if (initialized_ && isVlanIntf() && !bpfExpression_.empty()) {
    bpfExpression_.clear();
    addRemoveBpfFilter();
  }
  initialized_ = false;
}

void Sm::varpCounterInc(VarpCounterId id) const {
  if (VxlanAgentCounter* c = owner_ ? owner_->vxAgentCounter() : nullptr) c->varpCounterAdd(id);
}

}  // namespace Vxlan
