// Fuzz target of the MLAG sync receiver: any datagram that reaches the sync port,
// handed to the per-VTI machine's message handler. Besides what the sanitizers catch
// (the datagram ends where its packet's storage ends, so reading past it is caught),
// a VLAN above 4094 may end the handler with the value type's range exception.
#include "fuzz/VarpFuzzMachine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return VarpFuzz::handlePacket(data, size,
                                [](auto& vti, const auto& pkt) { vti.handleArpSyncMsg(pkt); });
}
