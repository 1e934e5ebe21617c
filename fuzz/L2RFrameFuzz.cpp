// Fuzz target of L2R::encapFrame, the per-frame function of the local-to-remote
// direction: any byte string read from a local socket of "vxlan", as it stands in the
// frame buffer of the frame loop.
//
// Besides what the sanitizers catch (the bytes behind the read length are poisoned
// under the address sanitizer, so a read of them is caught), it checks what the loop
// relies on: a dropped frame is left as it was read; a forwarded packet ends where the
// read ended, starts inside the buffer, carries the user frame's bytes behind the MAC
// addresses unchanged (less the tags removed), and its header has the fixed fields,
// the UDP length and the VNI of the frame's VLAN.
//
// The filter is fixed and matches the seeds (fuzz/corpus/l2r_frame): VLAN 10 on VNI
// 5010 and 4094 on 0xabcdef, peer link 7, tunnel port 9; ARP requests for an odd
// target address are refused by the hook, and those from an odd sender address have
// their two sender MACs rewritten as the switch's hook does, reading and writing the
// same fields: the rewrite must find the whole ARP header inside the frame.
#include <cstdlib>
#include <cstring>

#include "forwarding/L2RFramePath.h"

#if defined(__SANITIZE_ADDRESS__)
#define VXRELAY_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VXRELAY_ASAN 1
#endif
#endif
#ifdef VXRELAY_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace {

using namespace Vxlan;

constexpr uint8_t kBridgeMac[6] = {0x02, 0, 0, 0, 0x0b, 0x01};

struct OddTargetsRefused : L2R::ArpRequestHook {
  bool herRequired(uint32_t, uint32_t targetIp) override { return (targetIp & 1) == 0; }
  void rewriteNakedRequest(uint8_t* frame, uint32_t l2Offset, VniOrNone) override {
    uint8_t* arp = frame + l2Offset;
    if ((arp[17] & 1) == 0) return;  // the sender address's last byte
    std::memcpy(frame + 6, kBridgeMac, 6);
    std::memcpy(arp + 8, kBridgeMac, 6);
    rewroteAt = l2Offset;
  }
  uint32_t rewroteAt = 0;  // the ARP header of the last rewrite, 0 for none
} hook;

const L2R::EncapFilter& filter() {
  static L2R::VlanToVniTable vlans;
  static L2R::IfIndexTable tunnels;
  static L2R::EncapFilter f;
  if (f.vlanToVni == nullptr) {
    vlans.is(Bridging::VlanId(10), VniOrNone(Vni(5010)));
    vlans.is(Bridging::VlanId(4094), VniOrNone(Vni(0xabcdef)));
    tunnels.is(9, true);
    static L2R::VniByVlan vnis(vlans);
    f.vlanToVni = &vnis;
    f.tunnelPorts = &tunnels;
    f.peerLinkIfIndex = 7;
    f.localVtep = Wire::IpAddr::fromString("10.99.0.1");
    f.vArpVtep = Wire::IpAddr::fromString("10.99.0.100");
    f.varpVirtualMac = Wire::EthAddr::fromString("00:1c:73:00:00:99");
    f.arp = &hook;
  }
  return f;
}

void check(bool ok) {
  if (!ok) std::abort();
}

L2R::FrameBuffer buf;
uint8_t expected[L2R::kReadSize];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > L2R::kReadSize) return 0;
  if (size > 0) std::memcpy(buf.read, data, size);
  const uint32_t len = static_cast<uint32_t>(size);
#ifdef VXRELAY_ASAN
  ASAN_POISON_MEMORY_REGION(buf.read + size, L2R::kReadSize - size);
#endif
  hook.rewroteAt = 0;
  const L2R::Encap e = L2R::encapFrame(buf, len, filter());
#ifdef VXRELAY_ASAN
  ASAN_UNPOISON_MEMORY_REGION(buf.read + size, L2R::kReadSize - size);
#endif
  if (!e.forwarded()) {
    if (size > 0 && e.drop != L2R::Drop::arpNotRequired) {
      check(std::memcmp(buf.read, data, size) == 0);
    }
    return 0;
  }
  check(e.offset + e.length == L2R::kHeadroom + len);
  const uint32_t removed = 4u * ((e.tagsRemoved & 1) + ((e.tagsRemoved >> 1) & 1));
  check(e.length == len - 12 - removed + L2R::kOuterHdrLen);
  const uint8_t* p = buf.bytes() + e.offset;
  check(p[0] == 0x45 && p[6] == 0x40 && p[9] == 17 && p[28] == 0x08);
  check(static_cast<uint32_t>((p[24] << 8) | p[25]) == e.length - 20);
  check(static_cast<uint32_t>((p[32] << 16) | (p[33] << 8) | p[34]) ==
        (e.vlan == 10 ? 5010u : 0xabcdefu));
  // The user frame as read, with the hook's rewrite where it made one: the source MAC
  // and the ARP sender MAC, which lies behind the local header and the tags removed.
  std::memcpy(expected, data, size);
  if (hook.rewroteAt != 0) {
    std::memcpy(expected + 6, kBridgeMac, 6);
    std::memcpy(expected + 24 + removed + hook.rewroteAt + 8 - 12, kBridgeMac, 6);
  }
  check(std::memcmp(p + 36, expected, 12) == 0);
  check(std::memcmp(p + 48, expected + 24 + removed, len - 24 - removed) == 0);
  return 0;
}
