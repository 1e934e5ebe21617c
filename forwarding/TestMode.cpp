#include "forwarding/TestMode.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Vxlan {

const bool R2L_TEST = std::getenv("VXLAN_R2L_TEST") != nullptr;
const bool L2R_TEST = std::getenv("VXLAN_L2R_TEST") != nullptr;
const bool FAST_MODE = std::getenv("VXRELAY_FAST_MODE") != nullptr;

socklen_t testModeAddress(sockaddr_un& addr, const char* format) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, format, static_cast<int>(::getpid()));
  return sizeof addr;
}

}  // namespace Vxlan
