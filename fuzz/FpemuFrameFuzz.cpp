// Fuzz target of the forwarding-plane emulator's per-frame work (tools/fpemu): the
// switch's decisions for frames from host ports and from "txraw", and the conversions
// its loop applies to each decision.
//
// An input is a run of records, each fed to one fresh switch in order, so that
// learning and moves are reached and every input replays alone:
//   byte 0: the source, modulo 4: host port 0 (access 10), 1 (trunk 10 and 20),
//           2 (dot1q-tunnel 30), or 3 ("txraw"); byte 1: the frame's length; then the
//           frame (cut short at the end of the input).
//
// Checks: every frame read is counted once as passed or dropped; a frame never goes
// back to its own port; the local form is the frame with the 12-byte header behind
// its MACs and the decision's VLAN in it; a frame for a trunk leaves tagged with the
// VLAN and reads back as the same inner frame; a "txraw" frame loses exactly its
// 8-byte header and goes only to ports of its VLAN; the whole input, as a packet on
// "fabric", gives up at most its tail as the inner frame.
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "tools/fpemu/FpSwitch.h"

namespace {

using namespace Fpemu;
using C = Counter;

void check(bool ok) {
  if (!ok) std::abort();
}

std::vector<PortConfig> ports() {
  return {{"a", PortMode::access, {10}},
          {"t", PortMode::trunk, {10, 20}},
          {"q", PortMode::dot1qTunnel, {30}}};
}

uint16_t be16(const std::vector<uint8_t>& f, size_t at) {
  return static_cast<uint16_t>(f[at] << 8 | f[at + 1]);
}

void checkPortFrame(const FpSwitch& sw, const Decision& d, std::span<const uint8_t> f, int port) {
  if (d.drop != Drop::none) return;
  std::vector<uint8_t> out;
  localFrameOf(f, d.in, 7, out);
  check(out.size() == f.size() + kLocalHdrLen && std::memcmp(out.data(), f.data(), 12) == 0);
  check(be16(out, 12) == 0x0041 && be16(out, 18) == d.vlan && out[23] == 7);
  check(std::memcmp(out.data() + 24, f.data() + 12, f.size() - 12) == 0);
  for (int p : d.ports) {
    check(p != port && sw.ports()[static_cast<size_t>(p)].carries(d.vlan));
    if (p != 1) continue;
    egressOf(sw.ports()[1], d.vlan, d.inner, out);
    const Ingress back = classify(sw.ports()[1], out);
    check(back.drop == Drop::none && back.vlan == d.vlan);
    std::vector<uint8_t> inner;
    innerOf(out, back, inner);
    check(inner == d.inner);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FpSwitch sw(ports(), 8);
  // ARP from the overlay is trapped on port id 16; the whole input is also an
  // underlay frame, which, trapped, goes to the agent with four bytes more.
  sw.trappedArpPortIs(16);
  std::vector<uint8_t> trapped;
  if (overlayArpTrapped({data, size}, 0x0100000a, 4789, trapped)) {
    check(trapped.size() == size + 4 && trapped[12] == 0x00 && trapped[13] == 0x40);
  }
  // And a packet that the agent hands back on "fabric", decapsulated into VLAN 20 for
  // VNI 5010: the inner frame is the packet's tail, for ports of that VLAN.
  sw.vniMapIs({{5010, 20}});
  if (const Decision& d = sw.fromFabric({data, size}); d.drop == Drop::none) {
    check(d.vlan == 20 && d.inner.size() + 50 <= size &&
          std::memcmp(d.inner.data(), data + size - d.inner.size(), d.inner.size()) == 0);
    for (int p : d.ports) check(sw.ports()[static_cast<size_t>(p)].carries(20));
  }
  size_t at = 0;
  while (at + 2 <= size) {
    const int source = data[at] % 4;
    const size_t len = std::min<size_t>(data[at + 1], size - at - 2);
    const std::span<const uint8_t> f(data + at + 2, len);
    at += 2 + len;
    if (source == 3) {
      const Decision& d = sw.fromTxRaw(f);
      if (d.drop != Drop::none) continue;
      check(d.inner.size() == len - kTxRawHdrLen && !d.toAgent);
      for (int p : d.ports) check(sw.ports()[static_cast<size_t>(p)].carries(d.vlan));
    } else {
      checkPortFrame(sw, sw.fromPort(source, f), f, source);
    }
  }
  const Counters& c = sw.counters();
  check(c[C::portRxFrames] == c[C::portLocalFrames] + c[C::portRemoteFrames] +
                                  c[C::portFloodFrames] + c[C::dropRunt] +
                                  c[C::dropVlanNotAllowed] + c[C::dropSameSegment]);
  check(c[C::txRawRxFrames] == c[C::txRawLocalFrames] + c[C::txRawFloodFrames] +
                                   c[C::dropTxRawBadHeader] + c[C::dropTxRawUnknownVlan] +
                                   c[C::dropTxRawToRemote] + c[C::dropTxRawTrappedArp]);
  check(c[C::fabricRxFrames] == 1 &&
        c[C::fabricLocalFrames] + c[C::fabricFloodFrames] + c[C::dropFabricBadPacket] +
                c[C::dropFabricUnknownVni] + c[C::dropFabricUnknownVlan] +
                c[C::dropFabricToRemote] ==
            1);
  check(sw.macs().size() <= 8);
  return 0;
}
