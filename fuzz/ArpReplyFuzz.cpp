// Fuzz target of ARP reply replication's receive path: any frame that the filter of
// the routed VLAN interface Vlan10 lets through, through its checks to the MLAG peer,
// the overlay or the ARP cache of the one VTI that is up (the machine of
// fuzz/VarpFuzzMachine.h, with the replication machine of the default VRF on it). The
// frame ends where its packet's storage ends, so a read past it is caught by the
// address sanitizer.
//
// Checks: every frame moves exactly one counter of its fate: a drop reason, or the
// replication to the one VTI.
#include <cstdlib>

#include "fuzz/VarpFuzzMachine.h"
#include "varp/ArpReplyReplicationSm.h"

namespace {

using Vxlan::VarpCounterId;

struct Replication : VarpFuzz::Machine {
  Replication() {
    ipStatus_->vrfIpIntfStatusIs(Ip::Status::defaultVrf())->ipIntfStatusIs(Wire::IntfId("Vlan10"));
    rep_ = Vxlan::arpReplyReplicationSmFactory(ipStatus_, varpMac_, sm_.ptr(), counters_, nullptr,
                                               mlag_, nullptr);
    intf_ = rep_->arpReplyReplicationVrfSm(Ip::Status::defaultVrf())
                ->ipIntfStatus(Wire::IntfId("Vlan10"));
  }
  ~Replication() { rep_->doPrepareToDie(); }
  uint64_t fates() const {
    uint64_t n = 0;
    for (VarpCounterId id :
         {VarpCounterId::rxTooShort, VarpCounterId::rxBadType, VarpCounterId::rxBadArpHeader,
          VarpCounterId::rxNotArpReply, VarpCounterId::replicatedReplyRx}) {
      n += counters_->varpCounter(id).count;
    }
    return n;
  }

  Lum::Ptr<Vxlan::ArpReplyReplicationSm> rep_;
  Lum::Ptr<Vxlan::ArpReplyReplicationVrfSm::LumIpIntfStatus> intf_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Replication r;
  const Lum::Ptr<Wire::Pkt> pkt = VarpFuzz::Machine::packet(data, size);
  if (!pkt) return 0;
  const uint64_t before = r.fates();
  r.intf_->handleArpReplyPkt(pkt);
  if (r.fates() != before + 1) std::abort();
  r.forget();
  return 0;
}
