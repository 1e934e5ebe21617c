// Vxlan::VirtualArpSm::LumVrfStatusSm: what virtual ARP keeps of one VRF other than
// the default: once the VRF is active, a neighbor socket and a kernel watcher inside
// the VRF's network namespace (its VrfInfo); given back when the VRF goes.
#pragma once

#include "varp/VirtualArpSm.h"

namespace Vxlan {

class VirtualArpSm::LumVrfStatusSm : public Ip::VrfStatusLocal::NotifieeConst {
 public:
  LumVrfStatusSm(const Lum::Ptr<const Ip::VrfStatusLocal>& status, VirtualArpSm* owner);
  static L3::VrfName lumKeyOf(const Lum::Ptr<const Ip::VrfStatusLocal>& s) { return s->vrf(); }

  const L3::VrfName& vrfName() const { return vrfName_; }
  VirtualArpSm* virtualArpSm() const { return owner_; }
  void parentIs(VirtualArpSm* owner) { owner_ = owner; }
  bool initialized() const { return initialized_; }

  void onState() override { handleVrfStatus(); }
  void onNetworkNamespace() override { handleVrfStatus(); }
  void doPrepareToDie() override;

 private:
  void handleInitialized();
  void handleVrfStatus();

  VirtualArpSm* owner_;
  L3::VrfName vrfName_;
  bool initialized_ = false;
};

}  // namespace Vxlan
