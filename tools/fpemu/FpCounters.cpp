#include "tools/fpemu/FpCounters.h"

#include <iomanip>

namespace Fpemu {

std::optional<Counter> Counters::ofDrop(Drop d) {
  switch (d) {
    case Drop::none:
      return std::nullopt;
    case Drop::runt:
      return Counter::dropRunt;
    case Drop::vlanNotAllowed:
      return Counter::dropVlanNotAllowed;
    case Drop::sameSegment:
      return Counter::dropSameSegment;
    case Drop::txRawBadHeader:
      return Counter::dropTxRawBadHeader;
    case Drop::txRawUnknownVlan:
      return Counter::dropTxRawUnknownVlan;
    case Drop::txRawToRemote:
      return Counter::dropTxRawToRemote;
    case Drop::txRawTrappedArp:
      return Counter::dropTxRawTrappedArp;
    case Drop::fabricBadPacket:
      return Counter::dropFabricBadPacket;
    case Drop::fabricUnknownVni:
      return Counter::dropFabricUnknownVni;
    case Drop::fabricUnknownVlan:
      return Counter::dropFabricUnknownVlan;
    case Drop::fabricToRemote:
      return Counter::dropFabricToRemote;
  }
  return std::nullopt;
}

std::string_view Counters::name(Counter c) {
  static constexpr std::string_view kNames[] = {
#define FPEMU_COUNTER_NAME(name) #name,
      FPEMU_COUNTERS(FPEMU_COUNTER_NAME)
#undef FPEMU_COUNTER_NAME
  };
  static_assert(std::size(kNames) == kCount);
  return kNames[static_cast<size_t>(c)];
}

void Counters::print(std::ostream& out) const {
  out << "vxrelay-fpemu counters\n";
  for (size_t i = 0; i < kCount; ++i) {
    out << "  " << std::left << std::setw(22) << name(static_cast<Counter>(i)) << values_[i]
        << "\n";
  }
  out.flush();
}

}  // namespace Fpemu
