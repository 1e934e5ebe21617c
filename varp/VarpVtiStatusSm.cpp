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
  if (owner_) owner_->clearVarpCounters();
  handleUdpPort();
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
  vxlanArpRxPam_->enabledIs(false);
  rawTxPam_->enabledIs(false);
  udpPam_->modeIs(0);
  arpSyncUdpPam_->modeIs(0);
  initialized_ = false;
}

}  // namespace Vxlan
