// The virtual ARP machine the virtual ARP fuzz targets drive: the unit tests' machine
// (tests/varp/VarpSetup.h) on a kernel that takes every send and accepts every neighbor
// write, with a controller's table that knows 10.1.1.5 under 02:00:00:00:00:0a (so that
// a request from it under another MAC is rewritten), forgetting between inputs what one
// left behind.
#pragma once

#include <cstring>

#include "tests/varp/VarpSetup.h"

namespace VarpFuzz {

struct Machine : Vxlan::VarpSetup {
  Machine() {
    tables_->varpIpMacTableIs("t")->varpIpMacEntryIs(Vxlan::VarpIpMacEntry(
        Wire::IpGenAddr(Vxlan::ip("10.1.1.5")), Vxlan::VniOrNone(5010), Vxlan::mac(0x0a)));
  }
  void forget() {
    kernel_.sent.clear();
    kernel_.writes.clear();
    sm_->arpRewritePendingListDelAll();
  }

  // The input as a received packet: its bytes end where the packet's storage ends, so
  // a read past them leaves the allocation and the address sanitizer sees it.
  static Lum::Ptr<Wire::Pkt> packet(const uint8_t* data, size_t size) {
    Lum::Ptr<Wire::Pkt> p = Wire::globalPktManager().newPkt();
    if (!p || size > p->headRoom()) return nullptr;
    p->newSharedHeadData(static_cast<uint32_t>(size));
    if (size) std::memcpy(p->data(), data, size);
    return p;
  }
};

// The main of a target that hands the whole input, as a received packet, to one
// handler of the VTI's machine. A VLAN above 4094 in what the handler reads may end it
// with the value type's range exception, as it ends a reaction in the agent; nothing
// else may escape it.
template <class Handle>
int handlePacket(const uint8_t* data, size_t size, Handle handle) {
  static Machine machine;
  const Lum::Ptr<Wire::Pkt> pkt = Machine::packet(data, size);
  if (!pkt) return 0;
  try {
    handle(*machine.vti_, pkt);
  } catch (const Lum::RangeException&) {
  }
  machine.forget();
  return 0;
}

}  // namespace VarpFuzz
