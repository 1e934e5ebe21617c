// Vxlan::HwPortId: the forwarding plane's recirculation port id. The hardware status
// publishes it per VTI (portId, cpuSourcePortId) and the "txraw" header carries it as
// its glort. A type of its own so that it never passes for a VLAN, a VNI or an
// interface index. 0xFFFF names no port: it is the default, what a VTI has before the
// hardware agent has published its entry.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types/BoundedValue.h"

namespace Vxlan {

class HwPortId : public Lum::BoundedValue<HwPortId, uint16_t, 0, 0xffff, 0xffff> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "HwPortId";
  static constexpr std::string_view kRangeText = "HwPortId::value > 65535 not allowed";
  static constexpr uint16_t kUnknownValue = 0xffff;

  static constexpr HwPortId unknown() { return HwPortId(kUnknownValue); }
  constexpr bool isUnknown() const { return value() == kUnknownValue; }
};

}  // namespace Vxlan

template <>
struct std::hash<Vxlan::HwPortId> : Lum::BoundedValueHash<Vxlan::HwPortId> {};
