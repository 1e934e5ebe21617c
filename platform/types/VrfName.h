// L3::VrfName: the name of a VRF, at most 100 bytes. The default is the empty name.
#pragma once

#include <string_view>

#include "platform/types/BoundedString.h"

namespace L3 {

class VrfName : public Lum::BoundedString<VrfName, 100> {
 public:
  using BoundedString::BoundedString;
  static constexpr std::string_view kRangeText = "VrfName::bytes > 100 not allowed";
};

}  // namespace L3

template <>
struct std::hash<L3::VrfName> : Lum::BoundedStringHash<L3::VrfName> {};
