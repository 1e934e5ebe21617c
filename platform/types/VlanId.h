// Bridging::VlanId and Bridging::VlanIdOrNone: 802.1Q VLAN ids.
//
// VlanId is a real VLAN, 1 to 4094. A default VlanId is VLAN 1: it is only there so
// that a VlanId can key a map, and VLAN 1 is the one value that is always legal.
// Code that needs "no VLAN" uses VlanIdOrNone, where 0 means none (its default).
// The two convert explicitly: VlanIdOrNone(vlanId) always works; `vlanId()` throws
// the VlanId range exception when there is none.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types/BoundedValue.h"

namespace Bridging {

class VlanId : public Lum::BoundedValue<VlanId, uint16_t, 1, 4094> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "VlanId";
  static constexpr std::string_view kRangeText = "VlanId::value < 1 or > 4094 not allowed";
};

class VlanIdOrNone : public Lum::BoundedValue<VlanIdOrNone, uint16_t, 0, 4094> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "VlanIdOrNone";
  static constexpr std::string_view kRangeText = "VlanIdOrNone::value > 4094 not allowed";
  static constexpr uint16_t kNone = 0;

  explicit constexpr VlanIdOrNone(VlanId vlanId) : BoundedValue(vlanId.value()) {}

  constexpr bool isNone() const { return value() == kNone; }
  constexpr bool hasValue() const { return !isNone(); }
  VlanId vlanId() const { return VlanId(value()); }
};

}  // namespace Bridging

template <>
struct std::hash<Bridging::VlanId> : Lum::BoundedValueHash<Bridging::VlanId> {};
template <>
struct std::hash<Bridging::VlanIdOrNone> : Lum::BoundedValueHash<Bridging::VlanIdOrNone> {};
