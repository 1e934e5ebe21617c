// Wire::IfIndex: a kernel network interface index.
//
// The kernel numbers devices from 1 up within a network namespace and carries the
// number as a signed int, so the largest index is INT32_MAX; 0 is no device (the
// default). A type of its own so that an index never passes for a VLAN, a VNI or a
// port number; it converts to the kernel's int only where a system call needs it.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types/BoundedValue.h"

namespace Wire {

class IfIndex : public Lum::BoundedValue<IfIndex, uint32_t, 0, 0x7fffffff> {
 public:
  using BoundedValue::BoundedValue;
  static constexpr std::string_view kTypeName = "IfIndex";
  static constexpr std::string_view kRangeText = "IfIndex::value > 2147483647 not allowed";

  constexpr bool isNone() const { return value() == 0; }
};

}  // namespace Wire

template <>
struct std::hash<Wire::IfIndex> : Lum::BoundedValueHash<Wire::IfIndex> {};
