#include "platform/os/InterfaceRequest.h"

#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>

namespace Lum {

int interfaceRequestIs(ifreq& req, std::string_view name) {
  std::memset(&req, 0, sizeof req);
  if (name.empty()) return ENODEV;
  if (name.size() > kMaxInterfaceName) return ENAMETOOLONG;
  // The zeroed field keeps the terminating zero behind the copied name.
  std::memcpy(req.ifr_name, name.data(), name.size());
  return 0;
}

SysResult interfaceIndex(SysCalls& sys, int sock, std::string_view name) {
  ifreq req;
  if (const int refused = interfaceRequestIs(req, name)) return {-1, refused};
  if (sys.ioctl(sock, SIOCGIFINDEX, &req) < 0) return {-1, errno};
  return {req.ifr_ifindex, 0};
}

}  // namespace Lum
