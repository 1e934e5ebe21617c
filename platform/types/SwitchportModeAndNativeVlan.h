// Bridging::SwitchportMode and Bridging::SwitchportModeAndNativeVlan: how a switch
// port carries VLANs, as the bridging configuration holds it.
//
// The mode and the native VLAN of a port form one value because they change together
// and are read together: whoever tracks tunnel ports reacts to one notification, not
// to a mode that is already new while the VLAN is still old.
//
// The text form is "<mode number>,<native VLAN>" ("2,10"); `fromString` reads it
// back. A malformed text throws `SwitchportModeAndNativeVlan: malformed text "..."`,
// a VLAN out of range the VlanId range text. Mode numbers without a name here pass
// through unchanged, so that a newer configuration is carried, not refused.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>

#include "platform/types/VlanId.h"

namespace Bridging {

// Only the tunnel mode matters to this agent; a port without configuration counts as
// access (0).
enum class SwitchportMode : uint32_t {
  switchportModeAccess = 0,
  switchportModeTrunk = 1,
  switchportModeDot1qTunnel = 2,
};
std::ostream& operator<<(std::ostream& os, SwitchportMode m);

class SwitchportModeAndNativeVlan {
 public:
  static constexpr std::string_view kTypeName = "SwitchportModeAndNativeVlan";

  constexpr SwitchportModeAndNativeVlan() = default;
  constexpr SwitchportModeAndNativeVlan(SwitchportMode mode, VlanId nativeVlan)
      : mode_(mode), nativeVlan_(nativeVlan) {}
  static SwitchportModeAndNativeVlan fromString(std::string_view text);

  constexpr SwitchportMode mode() const { return mode_; }
  constexpr VlanId nativeVlan() const { return nativeVlan_; }
  constexpr bool isDot1qTunnel() const {
    return mode_ == SwitchportMode::switchportModeDot1qTunnel;
  }

  friend constexpr bool operator==(const SwitchportModeAndNativeVlan& a,
                                   const SwitchportModeAndNativeVlan& b) = default;
  friend constexpr std::strong_ordering operator<=>(const SwitchportModeAndNativeVlan& a,
                                                    const SwitchportModeAndNativeVlan& b) = default;

 private:
  SwitchportMode mode_ = SwitchportMode::switchportModeAccess;
  VlanId nativeVlan_;
};

std::ostream& operator<<(std::ostream& os, const SwitchportModeAndNativeVlan& v);

}  // namespace Bridging

template <>
struct std::hash<Bridging::SwitchportModeAndNativeVlan> {
  size_t operator()(const Bridging::SwitchportModeAndNativeVlan& v) const noexcept {
    return std::hash<uint64_t>()(uint64_t{static_cast<uint32_t>(v.mode())} << 16 |
                                 v.nativeVlan().value());
  }
};
