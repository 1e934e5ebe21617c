#include "platform/types/SwitchportModeAndNativeVlan.h"

#include <limits>
#include <optional>
#include <ostream>

#include "platform/types/ValueText.h"

namespace Bridging {

std::ostream& operator<<(std::ostream& os, SwitchportMode m) {
  return os << static_cast<uint32_t>(m);
}

SwitchportModeAndNativeVlan SwitchportModeAndNativeVlan::fromString(std::string_view text) {
  const size_t comma = text.find(',');
  if (comma == std::string_view::npos) Lum::throwMalformedText(kTypeName, text);
  std::optional<uint64_t> mode = Lum::parseDecimal(text.substr(0, comma));
  std::optional<uint64_t> vlan = Lum::parseDecimal(text.substr(comma + 1));
  if (!mode || !vlan || *mode > std::numeric_limits<uint32_t>::max()) {
    Lum::throwMalformedText(kTypeName, text);
  }
  // A well-formed VLAN out of range gets VlanId's own range text.
  return SwitchportModeAndNativeVlan(static_cast<SwitchportMode>(*mode), VlanId(*vlan));
}

std::ostream& operator<<(std::ostream& os, const SwitchportModeAndNativeVlan& v) {
  return os << v.mode() << ',' << v.nativeVlan();
}

}  // namespace Bridging
