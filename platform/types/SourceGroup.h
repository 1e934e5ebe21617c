// Routing::Igmp::SourceGroup: a multicast membership as the IGMP configuration keys
// it, a source address and a group address. Source 0.0.0.0 stands for any source
// (a (*,G) membership), which is the only kind this agent asks for.
//
// The text form is "<source>,<group>" ("0.0.0.0,239.1.1.1"); `fromString` reads it
// back and throws Lum::RangeException (`SourceGroup: malformed text "..."`) for
// anything else. Neither address is checked for being multicast: the key is the
// routing agent's, and a unicast group is refused earlier, by whoever joins.
// Ordering is by source, then group, numerically.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string_view>

#include "platform/types/IpAddr.h"

namespace Routing::Igmp {

class SourceGroup {
 public:
  static constexpr std::string_view kTypeName = "SourceGroup";

  constexpr SourceGroup() = default;
  constexpr SourceGroup(Wire::IpAddr source, Wire::IpAddr group) : source_(source), group_(group) {}
  // The membership of `group` from any source.
  static constexpr SourceGroup anySource(Wire::IpAddr group) { return {Wire::IpAddr(), group}; }
  static SourceGroup fromString(std::string_view text);

  constexpr Wire::IpAddr source() const { return source_; }
  constexpr Wire::IpAddr group() const { return group_; }
  constexpr bool isAnySource() const { return source_.isZero(); }

  friend constexpr bool operator==(SourceGroup a, SourceGroup b) = default;
  friend constexpr std::strong_ordering operator<=>(SourceGroup a, SourceGroup b) = default;

 private:
  Wire::IpAddr source_;
  Wire::IpAddr group_;
};

std::ostream& operator<<(std::ostream& os, SourceGroup sg);

}  // namespace Routing::Igmp

template <>
struct std::hash<Routing::Igmp::SourceGroup> {
  size_t operator()(Routing::Igmp::SourceGroup sg) const noexcept {
    return std::hash<uint64_t>()(uint64_t{sg.source().value()} << 32 | sg.group().value());
  }
};
