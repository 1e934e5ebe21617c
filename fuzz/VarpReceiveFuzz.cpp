// Fuzz target of virtual ARP's receive path: any frame that "vxlan" hands up as ARP
// from the overlay, through the frame checks, the VNI, the classification and the
// answer, learning, rewrite or hand-over it leads to (fuzz/VarpFuzzMachine.h). The
// frame ends where its packet's storage ends, so a read past it is caught by the
// address sanitizer; a tag naming VLAN 4095 may end the handler with the value type's
// range exception.
#include "fuzz/VarpFuzzMachine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return VarpFuzz::handlePacket(data, size,
                                [](auto& vti, const auto& pkt) { vti.handleVxlanArpPkt(pkt); });
}
