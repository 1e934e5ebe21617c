#include "varp/VarpVrfStatusSm.h"

#include "platform/os/SysCalls.h"
#include "platform/wire/NetlinkSocket.h"
#include "varp/VarpTrace.h"

namespace Vxlan {

using Sm = VirtualArpSm::LumVrfStatusSm;

#define VRF_TRACE(level, message)      \
  LUM_TRACE(::Vxlan::varpTrace, level, \
            "VarpVrfSm(" << vrfName_ << ")::" << LUM_TRACE_FUNCTION << message)

Sm::LumVrfStatusSm(const Lum::Ptr<const Ip::VrfStatusLocal>& status, VirtualArpSm* owner)
    : owner_(owner), vrfName_(status->vrf()) {
  if (owner_) lumFwkActivityIs(owner_->lumFwkActivity());
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  handleInitialized();
}

void Sm::handleInitialized() {
  VRF_TRACE(7, " vrf " << vrfName_);
  const Lum::Ptr<const Ip::VrfStatusLocal> vrf = notifier();
  if (initialized_ || !owner_ || !vrf || vrf->state() != Ip::VrfState::vrfActive) return;
  // The default VRF is the machine's own, made when it starts.
  if (vrfName_ == Ip::Status::defaultVrf()) return;
  if (vrf->networkNamespace().empty()) {
    Lum::throwRangeException("vrfStatusSm()->networkNamespace() != \"\"");
  }
  const Wire::NamespaceName ns = vrf->networkNamespace();
  int sock = -1;
  try {
    Wire::createNetlinkSocket(sock, 0, ns.view(), kNetlinkReplyWaitSeconds, true);
    Lum::Ptr<KernelNetworkInfo::Root> root(
        new KernelNetworkInfo::Root(Lum::Name(vrfName_.value())));
    Lum::Ptr<KernelNetworkInfo::Manager> manager(
        new KernelNetworkInfo::Manager(lumFwkActivity(), root, ns));
    owner_->vrfInfoIs(vrfName_, root, manager, sock);
    initialized_ = true;
  } catch (const Lum::ErrnoException& e) {
    // A namespace that is not there (yet): the VRF's next change tries again, and
    // its ARP meanwhile finds no VrfInfo and is counted as such.
    if (sock >= 0) Lum::sysCalls().close(sock);
    VRF_TRACE(1, " vrf " << vrfName_ << " namespace " << ns << " not opened: " << e.what());
  }
}

void Sm::handleVrfStatus() {
  const Lum::Ptr<const Ip::VrfStatusLocal> vrf = notifier();
  if (!vrf) return;
  VRF_TRACE(6, " vrf " << vrfName_ << " state " << vrf->state());
  if (vrf->state() == Ip::VrfState::vrfActive) handleInitialized();
}

void Sm::doPrepareToDie() {
  VRF_TRACE(7, " vrf " << vrfName_);
  if (!initialized_ || !owner_) return;
  // The holder closes its socket as it goes.
  owner_->vrfInfoDel(vrfName_);
  initialized_ = false;
}

}  // namespace Vxlan
