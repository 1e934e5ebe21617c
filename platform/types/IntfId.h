// Wire::IntfId: the name of an interface, and helpers that classify names.
//
// An IntfId is the full interface name ("Ethernet1", "Ethernet1.100", "Vlan10",
// "Port-Channel5", "Vxlan1", "Management1", "Loopback0"). The empty IntfId is the
// default and means "no interface". Any other name is accepted as long as every byte
// is printable ASCII without blanks: names with spaces or control bytes only come
// from bad input, would not survive the text form and would garble traces, so
// building one throws Lum::RangeException (`IntfId: malformed text "..."`). The
// kind of interface is not checked here; the helpers below tell kinds apart.
//
// `shortName()` gives the abbreviated form used in traces ("Et1.100", "Vl10", "Po5",
// "Vx1", "Ma1", "Lo0"); names of other kinds come back unchanged. Ordering is plain
// byte order of the name (so "Ethernet10" sorts before "Ethernet2").
//
// The helpers parse strictly: numbers are decimal without sign or leading zero, and
// a name must match its whole pattern, so "Vlan", "Vlan0", "Vlan4095", "Vlan1x",
// "Vlan010" are not VLAN interfaces and "Ethernet1." is not a sub-interface.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "platform/core/String8.h"
#include "platform/types/VlanId.h"

namespace Wire {

class IntfId {
 public:
  static constexpr std::string_view kTypeName = "IntfId";

  IntfId() = default;
  explicit IntfId(std::string_view name);
  explicit IntfId(const char* name) : IntfId(std::string_view(name)) {}
  explicit IntfId(const std::string& name) : IntfId(std::string_view(name)) {}
  // Shares the caller's buffer.
  explicit IntfId(const Lum::String8& name);
  static IntfId fromString(std::string_view text) { return IntfId(text); }

  const Lum::String8& stringValue() const { return name_; }
  std::string_view view() const { return name_.view(); }
  bool empty() const { return name_.empty(); }
  Lum::String8 shortName() const;

  friend bool operator==(const IntfId& a, const IntfId& b) = default;
  friend std::strong_ordering operator<=>(const IntfId& a, const IntfId& b) {
    return a.view() <=> b.view();
  }

 private:
  Lum::String8 name_;
};

std::ostream& operator<<(std::ostream& os, const IntfId& id);

// "Vlan<1..4094>": the routed interface of a VLAN.
class VlanIntfId {
 public:
  VlanIntfId() = delete;
  static bool isVlanIntfId(const IntfId& id);
  // Throws Lum::RangeException when `id` is not a VLAN interface.
  static Bridging::VlanId vlanId(const IntfId& id);
  static IntfId intfId(Bridging::VlanId vlanId);
};

// "Port-Channel<n>", n >= 1; a sub-interface of one ("Port-Channel5.100") is not.
class PortChannelIntfId {
 public:
  PortChannelIntfId() = delete;
  static bool isPortChannelIntfId(const IntfId& id);
};

// "<parent>.<n>", n >= 1, where the parent is a port-channel or a physical port
// ("Ethernet<n>" or "Ethernet<n>/<n>...", n >= 1).
class SubIntfId {
 public:
  SubIntfId() = delete;
  static bool isSubIntfId(const IntfId& id);
};

}  // namespace Wire

template <>
struct std::hash<Wire::IntfId> {
  size_t operator()(const Wire::IntfId& id) const noexcept {
    return std::hash<std::string_view>()(id.view());
  }
};
