#include "forwarding/DeviceWaits.h"

#include "platform/trace/Log.h"

namespace Vxlan {

void DeviceWaits::lookedUp(const Wire::IntfId& vti, std::string_view device, bool missing) {
  // A status without a device name is no device to wait for: the query says so.
  if (device.empty()) return;
  const auto it = missing_.find(device);
  // Only a change is said, and its line built: a rebuild that finds things as they were
  // costs the lookup.
  if (missing == (it != missing_.end())) return;
  const std::string vtiName(vti.view());
  if (missing) {
    missing_.emplace(device);
    Lum::logLine(Lum::LogSeverity::warning,
                 vtiName + ": waiting for device " + std::string(device));
  } else {
    missing_.erase(it);
    Lum::logLine(Lum::LogSeverity::info, vtiName + ": device " + std::string(device) + " is there");
  }
}

}  // namespace Vxlan
