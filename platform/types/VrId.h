// Routing::Fhrp::VrId: the id of a first-hop-redundancy virtual router, 0 to 256.
// A default VrId is 0.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types/BoundedValue.h"

namespace Routing::Fhrp {

class VrId : public Lum::BoundedValue<VrId, uint16_t, 0, 256> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "VrId";
  static constexpr std::string_view kRangeText =
      "VrId::value < VrId::min or > VrId::max not allowed";
};

}  // namespace Routing::Fhrp

template <>
struct std::hash<Routing::Fhrp::VrId> : Lum::BoundedValueHash<Routing::Fhrp::VrId> {};
