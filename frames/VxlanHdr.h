// VXLAN header (RFC 7348).
//
//   0       1          4          7
//   | flags | reserved | vni (24) | reserved |
//
// Only bit 0x08 of the flags (VNI valid) is read or written; the other flag bits and
// the reserved bytes are ignored on receipt and written as zero.
#pragma once

#include <cstdint>

#include "platform/types/Vni.h"

namespace Wire {

struct VxlanHdr {
  static constexpr uint8_t kFlagVniValid = 0x08;

  uint8_t flags;
  uint8_t reserved1[3];
  uint8_t vniBytes[3];
  uint8_t reserved2;

  bool flagsVniValid() const { return (flags & kFlagVniValid) != 0; }
  void flagsVniValidIs(bool v) {
    flags = v ? static_cast<uint8_t>(flags | kFlagVniValid)
              : static_cast<uint8_t>(flags & ~kFlagVniValid);
  }
  // The 24-bit VNI, byte 4 most significant.
  uint32_t vniValue() const {
    return (uint32_t{vniBytes[0]} << 16) | (uint32_t{vniBytes[1]} << 8) | vniBytes[2];
  }
  Vxlan::Vni vni() const { return Vxlan::Vni(vniValue()); }
  void vniIs(Vxlan::Vni v) {
    vniBytes[0] = static_cast<uint8_t>(v.value() >> 16);
    vniBytes[1] = static_cast<uint8_t>(v.value() >> 8);
    vniBytes[2] = static_cast<uint8_t>(v.value());
  }
};
static_assert(sizeof(VxlanHdr) == 8 && alignof(VxlanHdr) == 1);

inline constexpr uint32_t kVxlanHdrLen = sizeof(VxlanHdr);

}  // namespace Wire
