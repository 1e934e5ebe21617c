// TestSupport::HwPortId: the forwarding plane's port number that the hardware status
// publishes (portId) and that the "txraw" header carries as its glort. A type of its
// own so that it never passes for a VLAN or a VNI in the topology's parameters.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types/BoundedValue.h"

namespace TestSupport {

class HwPortId : public Lum::BoundedValue<HwPortId, uint16_t, 0, 0xffff> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "HwPortId";
  static constexpr std::string_view kRangeText = "HwPortId::value > 65535 not allowed";
};

}  // namespace TestSupport
