#include "varp/VarpVtiStatusSm.h"

namespace Vxlan {

VirtualArpSm::LumVtiStatusSm::LumVtiStatusSm(const Lum::Ptr<const VtiStatus>& status,
                                             VirtualArpSm* owner)
    : owner_(owner), intfId_(status->intfId()) {
  if (owner_) lumFwkActivityIs(owner_->lumFwkActivity());
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  initialized_ = true;
}

}  // namespace Vxlan
