#include "varp/VarpVtiStatusSm.h"

#include "varp/ArpSyncMsg.h"
#include "varp/VarpSettings.h"
#include "varp/VarpTrace.h"

namespace Vxlan {

namespace {

// "Every type" for the test mode, in the switch's numbering (kVxlanArpType is the
// pseudo type of ARP from the overlay).
constexpr uint16_t kAllTypes = 3;
constexpr uint32_t kArpRxFrameBytes = 1518;
constexpr uint32_t kPktLimit = 10000;

}  // namespace

using Sm = VirtualArpSm::LumVtiStatusSm;

Sm::LumVtiStatusSm(const Lum::Ptr<const VtiStatus>& status, VirtualArpSm* owner)
    : owner_(owner), intfId_(status->intfId()) {
  if (owner_) lumFwkActivityIs(owner_->lumFwkActivity());
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  handleInitialized();
}

void Sm::handleInitialized() {
  initialized_ = true;
  Wire::globalPktManager().limitIs(kPktLimit);
  vxlanArpRxPam_ = Wire::EthDevPam::EthDevPamIs(Lum::Name("vxlan"));
  vxlanArpRxPam_->perIntfSocketIs(true);
  vxlanArpRxPam_->maxRxPktDataIs(kArpRxFrameBytes);
  vxlanArpRxPam_->ethProtocolIs(VXLAN_ARP_TEST ? kAllTypes : kVxlanArpType);
  rawTxPam_ = new Wire::RawTxPam(Lum::Name(kRawTxPamName));
  rawTxPam_->ethProtocolIs(kAllTypes);
  udpPam_ = new Wire::UdpPam(Lum::Name(kUdpPamName));
  arpSyncUdpPam_ = new Wire::UdpPam(Lum::Name(kArpSyncPamName));
  arpSyncUdpPam_->txPortIs(ArpSyncMsg::kPort);
  arpSyncUdpPam_->rxPortLocalIs(ArpSyncMsg::kPort);
  vxlanArpRxPamReactor_.is(Lum::Ptr<const Wire::Pam>(vxlanArpRxPam_));
  arpSyncUdpPamReactor_.is(Lum::Ptr<const Wire::Pam>(arpSyncUdpPam_));
  if (owner_) owner_->clearVarpCounters();
  handleUdpPort();
  handleOperStatus();
  if (owner_) mlagStatus_.is(owner_->inputs().mlagStatus);
}

bool Sm::readsFrom(const Wire::Pam* pam, const char* missing) const {
  if (!pam) {
    LUM_TRACE(varpTrace, 1, "VarpSm(" << intfId_ << ")" << missing);
    return false;
  }
  if (initialized_ && operUp()) return true;
  const Lum::Ptr<const VtiStatus> vti = notifier();
  LUM_TRACE(varpTrace, 7,
            "VarpSm(" << intfId_ << ") vti operStatus "
                      << static_cast<int>(vti ? vti->operStatus()
                                              : Interface::IntfOperStatus::intfOperUnknown));
  return false;
}

bool Sm::operUp() const {
  const Lum::Ptr<const VtiStatus> vti = notifier();
  return vti && vti->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

void Sm::handleOperStatus() {
  const bool up = operUp();
  LUM_TRACE(varpTrace, 5,
            "VarpSm(" << intfId_ << (up ? ") UP. Enabling PAMs" : ") DOWN. Disabling PAMs"));
  vxlanArpRxPamEnabledIs(up);
  // A PAM that cannot open (no privilege for a packet socket, say) leaves this VTI
  // without it until its next change: the agent and the other VTIs go on.
  try {
    rawTxPam_->enabledIs(up);
    if (up) udpPam_->txDstIpAddrIs(Wire::IpAddr::fromHostOrder(0xffffffff));
    udpPam_->modeIs(up ? kReplyMode : 0);
  } catch (const Lum::Exception& e) {
    LUM_TRACE(varpTrace, 1, "VarpSm(" << intfId_ << ") PAMs not opened: " << e.what());
  }
}

void Sm::vxlanArpRxPamEnabledIs(bool enable) {
  LUM_TRACE(varpTrace, 7, "VarpSm(" << intfId_ << ")::vxlanArpRxPamEnabledIs " << enable);
  const Lum::Expect expected(Lum::ExceptionId::deviceMissing);
  try {
    vxlanArpRxPam_->enabledIs(enable);
  } catch (const Lum::Exception& e) {
    // handleKernelDevice applies it again when the device returns.
    LUM_TRACE(varpTrace, 2,
              "VarpSm(" << intfId_ << ") Skipping enabledIs because vxlan dev "
                        << "disappered: " << e.what());
  }
}

void Sm::handleMlagStatus() {
  const Mlag::Status* mlag = mlagStatus_ ? mlagStatus_->notifier().ptr() : nullptr;
  const auto state = mlag ? mlag->mlagState() : Mlag::MlagState::mlagStateDisabled;
  LUM_TRACE(varpTrace, 6, "VarpSm(" << intfId_ << ") mlagState " << state);
  const bool active =
      state == Mlag::MlagState::mlagStatePrimary || state == Mlag::MlagState::mlagStateSecondary;
  if (active && !mlag->peerLinkIntf().empty()) {
    LUM_TRACE(varpTrace, 5,
              "VarpSm(" << intfId_ << ") mlag active with peerLinkIntf: " << mlag->peerLinkIntf());
    const Mlag::Config* config = owner_ ? owner_->inputs().mlagConfig.ptr() : nullptr;
    arpSyncUdpPam_->txDstIpAddrIs(config ? config->peerAddress() : Wire::IpAddr());
    arpSyncUdpPam_->modeIs(kSyncMode);
  } else {
    LUM_TRACE(varpTrace, 5, "VarpSm(" << intfId_ << ") mlag inactive or no peer link intf");
    arpSyncUdpPam_->modeIs(0);
  }
}

void Sm::handleUdpPort() {
  const Lum::Ptr<const VtiStatus> vti = notifier();
  const uint16_t port = vti ? vti->udpPort() : 0;
  LUM_TRACE(varpTrace, 7, "VarpSm(" << intfId_ << ")::handleUdpPort " << port);
  udpPam_->txPortIs(port ? port : VtiStatus::kDefaultUdpPort);
}

void Sm::doPrepareToDie() {
  if (initialized_) {
    LUM_TRACE(varpTrace, 5, "VarpSm(" << intfId_ << ") deleted. Disabling PAMs");
  }
  vxlanArpRxPamEnabledIs(false);
  rawTxPam_->enabledIs(false);
  udpPam_->modeIs(0);
  arpSyncUdpPam_->modeIs(0);
  initialized_ = false;
}

}  // namespace Vxlan
