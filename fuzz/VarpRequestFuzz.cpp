// Fuzz target of the ARP request rewrite of virtual ARP: any VXLAN header, inner
// Ethernet header and ARP request (the classifier has checked the length and the
// opcode before), rewritten in place. It checks what the classifier relies on: only
// the inner source MAC and the ARP sender MAC may change, and when they do both are
// the virtual MAC and the sender went on the pending list of its target.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/VarpFuzzMachine.h"

namespace {
constexpr size_t kRequestBytes = 8 + 14 + 28;
constexpr size_t kInnerSrc = 8 + 6, kArpSender = 8 + 14 + 8, kArpTarget = 8 + 14 + 24;
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static VarpFuzz::Machine machine;
  if (size < kRequestBytes) return 0;
  std::vector<uint8_t> in(data, data + kRequestBytes);
  in[8 + 14 + 6] = 0;  // opcode 1: the classifier calls it for requests only
  in[8 + 14 + 7] = 1;
  const Lum::Ptr<Wire::Pkt> pkt = VarpFuzz::Machine::packet(in.data(), in.size());
  machine.vti_->virtualArpSm()->checkAndRewriteVxlanArpRequest(pkt, pkt->data());
  const uint8_t* out = pkt->data();
  const bool rewritten = std::memcmp(out + kArpSender, in.data() + kArpSender, 6) != 0 ||
                         std::memcmp(out + kInnerSrc, in.data() + kInnerSrc, 6) != 0;
  for (size_t i = 0; i < kRequestBytes; ++i) {
    const bool mayChange =
        (i >= kInnerSrc && i < kInnerSrc + 6) || (i >= kArpSender && i < kArpSender + 6);
    if (!mayChange && out[i] != in[i]) std::abort();
  }
  if (rewritten) {
    if (Wire::EthAddr::fromBytes(out + kInnerSrc) != Vxlan::kVarpMac ||
        Wire::EthAddr::fromBytes(out + kArpSender) != Vxlan::kVarpMac) {
      std::abort();
    }
    uint32_t t;
    std::memcpy(&t, in.data() + kArpTarget, 4);
    const Wire::IpAddr target = Wire::IpAddr::fromNetworkOrder(t);
    const uint32_t vni = uint32_t(in[4]) << 16 | uint32_t(in[5]) << 8 | in[6];
    const auto list =
        machine.sm_->arpRewritePendingList({Vxlan::Vni(vni), Wire::IpGenAddr(target)});
    if (!list || !list->reqMacAddr(Wire::EthAddr::fromBytes(in.data() + kArpSender))) std::abort();
  }
  machine.forget();
  return 0;
}
