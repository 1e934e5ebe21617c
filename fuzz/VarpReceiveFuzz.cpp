// Fuzz target of virtual ARP's receive path: any frame that "vxlan" hands up as ARP
// from the overlay, through the frame checks, the VNI, the classification and the
// answer, learning, rewrite or hand-over it leads to (fuzz/VarpFuzzMachine.h). The
// frame ends where its packet's storage ends, so a read past it is caught by the
// address sanitizer; a tag naming VLAN 4095 may end the handler with the value type's
// range exception, as it ends a reaction in the agent.
#include "fuzz/VarpFuzzMachine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static VarpFuzz::Machine machine;
  const Lum::Ptr<Wire::Pkt> pkt = VarpFuzz::Machine::packet(data, size);
  if (!pkt) return 0;
  try {
    machine.vti->handleVxlanArpPkt(pkt);
  } catch (const Lum::RangeException&) {
    // VLAN 4095 in the tag: the reaction ends there.
  }
  machine.forget();
  return 0;
}
