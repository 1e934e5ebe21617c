// Vxlan::VrfInfo: what virtual ARP keeps of one VRF to write its neighbor table: the
// kernel's view of the VRF's namespace (kniRoot, filled by kniManager) and an rtnetlink
// socket made inside that namespace. The default VRF's uses the agent's own watcher.
//
// The holder owns the socket: it is closed when the holder goes.
#pragma once

#include "platform/core/Ptr.h"
#include "platform/kernel/KernelNetworkInfoManager.h"
#include "platform/status/interface/KernelNetworkInfo.h"
#include "platform/types/VrfName.h"

namespace Vxlan {

class VrfInfo : public Lum::VFPtrInterface {
 public:
  VrfInfo(const L3::VrfName& vrfName, const Lum::Ptr<KernelNetworkInfo::Root>& kniRoot,
          const Lum::Ptr<KernelNetworkInfo::Manager>& kniManager, int netlinkSocket)
      : vrfName_(vrfName),
        kniRoot_(kniRoot),
        kniManager_(kniManager),
        netlinkSocket_(netlinkSocket) {}
  ~VrfInfo() override;
  VrfInfo(const VrfInfo&) = delete;
  VrfInfo& operator=(const VrfInfo&) = delete;

  const L3::VrfName& vrfName() const { return vrfName_; }
  const Lum::Ptr<KernelNetworkInfo::Root>& kniRoot() const { return kniRoot_; }
  const Lum::Ptr<KernelNetworkInfo::Manager>& kniManager() const { return kniManager_; }
  // -1 when there is none.
  int netlinkSocket() const { return netlinkSocket_; }
  double ts() const { return ts_; }

 private:
  L3::VrfName vrfName_;
  Lum::Ptr<KernelNetworkInfo::Root> kniRoot_;
  Lum::Ptr<KernelNetworkInfo::Manager> kniManager_;
  int netlinkSocket_;
  double ts_ = 0.0;
};

}  // namespace Vxlan
