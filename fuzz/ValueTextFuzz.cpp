// The text form of every value type that a state document or a control request can
// carry. The first byte picks the type, the rest is the text.
//
// The invariants beyond "no crash": a text that parses prints as a text that parses
// again to an equal value, and that printed form is stable (printing it again gives
// the same text), so what `get` shows can always be applied back.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "platform/core/Entity.h"
#include "platform/core/Exception.h"
#include "platform/core/TypeRegistry.h"
#include "platform/types/EthAddr.h"
#include "platform/types/HwPortId.h"
#include "platform/types/IfIndex.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/NamespaceName.h"
#include "platform/types/SourceGroup.h"
#include "platform/types/SwitchportModeAndNativeVlan.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"
#include "platform/types/VrId.h"
#include "platform/types/VrfName.h"

namespace {

template <class V>
void roundTrip(std::string_view text) {
  V value;
  try {
    value = Lum::fromText<V>(text);
  } catch (const Lum::Exception&) {
    return;  // refused with the type's own error: fine
  }
  const std::string printed = Lum::toText(value);
  V again;
  try {
    again = Lum::fromText<V>(printed);
  } catch (const Lum::Exception& e) {
    std::cerr << "printed form \"" << printed << "\" refused: " << e.what() << "\n";
    std::abort();
  }
  if (!(again == value) || Lum::toText(again) != printed) {
    std::cerr << "\"" << printed << "\" does not read back as itself\n";
    std::abort();
  }
}

using RoundTrip = void (*)(std::string_view);

constexpr RoundTrip kTypes[] = {
    roundTrip<Wire::EthAddr>,
    roundTrip<Wire::IntfId>,
    roundTrip<Wire::IpAddr>,
    roundTrip<Wire::Ip6Addr>,
    roundTrip<Wire::IpGenAddr>,
    roundTrip<Wire::IpAddrWithMask>,
    roundTrip<Wire::IpGenAddrWithMask>,
    roundTrip<Wire::IfIndex>,
    roundTrip<Wire::NamespaceName>,
    roundTrip<Bridging::VlanId>,
    roundTrip<Bridging::VlanIdOrNone>,
    roundTrip<Bridging::SwitchportModeAndNativeVlan>,
    roundTrip<Vxlan::Vni>,
    roundTrip<Vxlan::VniOrNone>,
    roundTrip<Vxlan::HwPortId>,
    roundTrip<Routing::Igmp::SourceGroup>,
    roundTrip<Routing::Fhrp::VrId>,
    roundTrip<L3::VrfName>,
    roundTrip<bool>,
    roundTrip<uint8_t>,
    roundTrip<uint16_t>,
    roundTrip<int32_t>,
    roundTrip<double>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const RoundTrip check = kTypes[data[0] % std::size(kTypes)];
  check(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
  return 0;
}
