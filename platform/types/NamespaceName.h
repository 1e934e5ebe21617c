// Wire::NamespaceName: the name of a network namespace, at most 150 bytes. The
// default is the empty name.
#pragma once

#include <string_view>

#include "platform/types/BoundedString.h"

namespace Wire {

class NamespaceName : public Lum::BoundedString<NamespaceName, 150> {
 public:
  using BoundedString::BoundedString;
  static constexpr std::string_view kRangeText = "NamespaceName::bytes > 150 not allowed";
};

// The namespace of the default VRF, as the platform names it: the agent's own (the
// namespace services take it, like the empty name, as the calling thread's).
inline const NamespaceName DEFAULT_NS("default");

}  // namespace Wire

template <>
struct std::hash<Wire::NamespaceName> : Lum::BoundedStringHash<Wire::NamespaceName> {};
