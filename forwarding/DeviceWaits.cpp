#include "forwarding/DeviceWaits.h"

#include "platform/trace/Log.h"

namespace Vxlan {

void DeviceWaits::lookedUp(const Wire::IntfId& vti, std::string_view device, bool missing) {
  // A status without a device name is no device to wait for: the query says so.
  if (device.empty()) return;
  const std::string line = std::string(vti.view()) + ": " +
                           (missing ? "waiting for device " : "device ") + std::string(device);
  if (missing) {
    if (missing_.emplace(device).second) Lum::logLine(Lum::LogSeverity::warning, line);
    return;
  }
  const auto it = missing_.find(device);
  if (it == missing_.end()) return;
  missing_.erase(it);
  Lum::logLine(Lum::LogSeverity::info, line + " is there");
}

}  // namespace Vxlan
