// Vxlan::Vni and Vxlan::VniOrNone: VXLAN network identifiers (24 bits).
//
// Vni is a real VNI, 0 to 0xffffff. VniOrNone adds one value above the largest VNI,
// 0x1000000 (kNone), which is what default entries carry and what a default
// VniOrNone holds; any value above 0xffffff means "no VNI". The two convert
// explicitly: VniOrNone(vni) always works; `vni()` throws the Vni range exception
// when there is none.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types/BoundedValue.h"

namespace Vxlan {

class Vni : public Lum::BoundedValue<Vni, uint32_t, 0, 0xffffff> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "Vni";
  static constexpr std::string_view kRangeText = "Vni::value < Vni::min or > Vni::max not allowed";
};

inline constexpr uint32_t kVniNone = 0x1000000;

class VniOrNone : public Lum::BoundedValue<VniOrNone, uint32_t, 0, kVniNone, kVniNone> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "VniOrNone";
  static constexpr std::string_view kRangeText = "VniOrNone::value < 0 or > 16777216 not allowed";
  static constexpr uint32_t kNone = kVniNone;

  explicit constexpr VniOrNone(Vni vni) : BoundedValue(vni.value()) {}

  constexpr bool isNone() const { return value() > Vni::kMax; }
  constexpr bool hasValue() const { return !isNone(); }
  Vni vni() const { return Vni(value()); }
};

}  // namespace Vxlan

template <>
struct std::hash<Vxlan::Vni> : Lum::BoundedValueHash<Vxlan::Vni> {};
template <>
struct std::hash<Vxlan::VniOrNone> : Lum::BoundedValueHash<Vxlan::VniOrNone> {};
