// Vxlan::DevIfindexPair: a kernel device name with that device's interface index, the
// agent's own value type. The local-to-remote direction keeps one per switch port in
// dot1q-tunnel mode; the default (empty name, index 0) means none, and a pair whose
// device the kernel does not have yet carries index 0 until it appears.
//
// Pairs order by name, then by index. The text form is the framework's record form
// (platform/types/ValueStrep.h), which the generic interface reads and writes:
//
//   Value('Vxlan::DevIfindexPair', ** {'devname': 'et3', 'ifindex': 7})
//
// Reading takes the attributes in any order, and a missing one keeps its default.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>

#include "platform/core/String8.h"

namespace Vxlan {

class DevIfindexPair {
 public:
  DevIfindexPair() = default;
  DevIfindexPair(const Lum::String8& devname, uint32_t ifindex)
      : devname_(devname), ifindex_(ifindex) {}
  // Reads the text form from `pos` (blanks around it allowed) and leaves `pos` behind
  // it. Throws Lum::RangeException: "premature end of value type DevIfindexPair",
  // "DevIfindexPair has no such attribute: <name>", or the fault of a piece.
  DevIfindexPair(Lum::String8::IteratorConst& pos, Lum::String8::IteratorConst end);
  // The whole text, for the generic interface (Lum::strepToValue).
  static DevIfindexPair fromString(std::string_view text);

  const Lum::String8& devname() const { return devname_; }
  void devnameIs(const Lum::String8& name) { devname_ = name; }
  uint32_t ifindex() const { return ifindex_; }
  void ifindexIs(uint32_t ifindex) { ifindex_ = ifindex; }

  // True for the value that means none.
  bool operator!() const { return devname_.empty() && ifindex_ == 0; }
  friend bool operator==(const DevIfindexPair& a, const DevIfindexPair& b) = default;
  friend std::strong_ordering operator<=>(const DevIfindexPair& a,
                                          const DevIfindexPair& b) = default;

 private:
  Lum::String8 devname_;
  uint32_t ifindex_ = 0;
};

Lum::String8 valueToStrep(const DevIfindexPair& v);
std::ostream& operator<<(std::ostream& os, const DevIfindexPair& v);

}  // namespace Vxlan

template <>
struct std::hash<Vxlan::DevIfindexPair> {
  size_t operator()(const Vxlan::DevIfindexPair& v) const noexcept {
    return std::hash<Lum::String8>()(v.devname()) ^ (size_t{v.ifindex()} * 0x9e3779b97f4a7c15u);
  }
};
