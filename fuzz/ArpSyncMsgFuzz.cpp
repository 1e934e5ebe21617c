// Fuzz target of the MLAG sync receiver: any datagram that reaches the sync port,
// handed to the per-VTI machine's message handler. Besides what the sanitizers catch
// (the datagram ends where its packet's storage ends, so reading past it is caught),
// a VLAN above 4094 may end the handler with the value type's range exception, as it
// ends a reaction in the agent; nothing else may escape it.
#include <cstdlib>

#include "fuzz/VarpFuzzMachine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static VarpFuzz::Machine machine;
  const Lum::Ptr<Wire::Pkt> pkt = VarpFuzz::Machine::packet(data, size);
  if (!pkt) return 0;
  try {
    machine.vti->handleArpSyncMsg(pkt);
  } catch (const Lum::RangeException&) {
    // The VLAN of the message is out of range: the reaction ends there.
  }
  machine.forget();
  return 0;
}
