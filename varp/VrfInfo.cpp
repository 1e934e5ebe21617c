#include "varp/VrfInfo.h"

#include "platform/os/SysCalls.h"

namespace Vxlan {

VrfInfo::~VrfInfo() {
  if (netlinkSocket_ >= 0) Lum::sysCalls().close(netlinkSocket_);
}

}  // namespace Vxlan
