// Fpemu::Counters: what the emulator passed and dropped, by reason. The names are the
// ones it prints (on SIGUSR1 and at exit), one "name value" line each, and the tests
// read them back by name.
//
// Every frame read is accounted for once:
//   portRxFrames  = portLocalFrames + portRemoteFrames + portFloodFrames
//                   + dropRunt + dropVlanNotAllowed + dropSameSegment
//   txRawRxFrames = txRawLocalFrames + txRawFloodFrames
//                   + dropTxRawBadHeader + dropTxRawUnknownVlan + dropTxRawToRemote
//                   + dropTxRawTrappedArp
//   fabricRxFrames = fabricLocalFrames + fabricFloodFrames + dropFabricBadPacket
//                   + dropFabricUnknownVni + dropFabricUnknownVlan + dropFabricToRemote
//   underlayRxFrames  (with the trap on) counts what the underlay brought, of which
//                   overlayArpTrapped went to the agent on "vxlan" (in agentTxFrames)
// and every write once: agentTxFrames (on "vxlan") and portTxFrames, or sendErrors.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string_view>

#include "tools/fpemu/FpFrames.h"

namespace Fpemu {

#define FPEMU_COUNTERS(X)  \
  X(portRxFrames)          \
  X(portLocalFrames)       \
  X(portRemoteFrames)      \
  X(portFloodFrames)       \
  X(txRawRxFrames)         \
  X(txRawLocalFrames)      \
  X(txRawFloodFrames)      \
  X(agentTxFrames)         \
  X(portTxFrames)          \
  X(macsLearnt)            \
  X(macMoves)              \
  X(macTableFull)          \
  X(dropRunt)              \
  X(dropVlanNotAllowed)    \
  X(dropSameSegment)       \
  X(dropTxRawBadHeader)    \
  X(dropTxRawUnknownVlan)  \
  X(dropTxRawToRemote)     \
  X(dropTxRawTrappedArp)   \
  X(fabricRxFrames)        \
  X(fabricLocalFrames)     \
  X(fabricFloodFrames)     \
  X(dropFabricBadPacket)   \
  X(dropFabricUnknownVni)  \
  X(dropFabricUnknownVlan) \
  X(dropFabricToRemote)    \
  X(underlayRxFrames)      \
  X(overlayArpTrapped)     \
  X(readErrors)            \
  X(sendErrors)

enum class Counter : uint8_t {
#define FPEMU_COUNTER_ID(name) name,
  FPEMU_COUNTERS(FPEMU_COUNTER_ID)
#undef FPEMU_COUNTER_ID
      count
};

class Counters {
 public:
  static constexpr size_t kCount = static_cast<size_t>(Counter::count);

  void add(Counter c, uint64_t n = 1) { values_[static_cast<size_t>(c)] += n; }
  uint64_t operator[](Counter c) const { return values_[static_cast<size_t>(c)]; }
  // The counter of a drop reason (none for Drop::none).
  static std::optional<Counter> ofDrop(Drop d);
  static std::string_view name(Counter c);
  // A heading line, then one "  name value" line per counter, zeros included.
  void print(std::ostream& out) const;

 private:
  std::array<uint64_t, kCount> values_{};
};

}  // namespace Fpemu
