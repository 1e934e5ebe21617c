// Vxlan::DeviceWaits: the kernel devices a forwarding machine of one VTI found missing
// when it looked up their index to bind a socket. The operator's log says once that
// the VTI waits for such a device ("Vxlan1: waiting for device vtep0"), however often
// the machine rebuilds its sockets meanwhile, and once that it is there again.
//
// It is fed where the machines look the index up (R2LSockets.cpp, L2RSockets.cpp):
// that is where they notice, and it costs a set lookup on a socket rebuild, never on
// the frame path.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "platform/types/IntfId.h"

namespace Vxlan {

class DeviceWaits {
 public:
  // The lookup of `device` for the sockets of `vti` failed (`missing`) or found it.
  void lookedUp(const Wire::IntfId& vti, std::string_view device, bool missing);
  bool waitingFor(std::string_view device) const { return missing_.contains(device); }

 private:
  std::set<std::string, std::less<>> missing_;
};

}  // namespace Vxlan
