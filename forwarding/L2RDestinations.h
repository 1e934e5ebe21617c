// What the local-to-remote machine chooses as a frame's destinations, and the last
// choice, kept while nothing it was made from has changed.
#pragma once

#include <cstdint>
#include <cstring>

#include "forwarding/DropTables.h"
#include "forwarding/ForwardingTrace.h"
#include "platform/core/Ptr.h"
#include "platform/core/Reactor.h"
#include "platform/status/vxlan/BumStatus.h"
#include "platform/types/EthAddr.h"

namespace Vxlan::L2R {

// A flood list, or one address in host order (0: none); how it was chosen (words for
// the packet trace), and for a send-to-any list the counter it moves when no VTEP of
// the list is usable (kNoCounter for none).
struct Destinations {
  Lum::Ptr<const BumVtepList> list;
  uint32_t hostIp = 0;
  const char* how = "";
  bool sendToAny = false;
  uint32_t sendToAnyMiss = kNoCounter;
};

// The last choice, kept while no shared state changed (Lum::stateChanges()): a stream
// of frames asks the same question of the same state frame after frame. Not while the
// choice's text trace (levels 7 to 9) is on: then it is made again, so that the trace
// reads the same as without a kept choice.
class KeptDestinations {
 public:
  const Destinations* find(const Wire::EthAddr& dst, uint32_t vlan) const {
    if (changes_ == Lum::stateChanges() && vlan_ == vlan &&
        std::memcmp(dst_.bytes().data(), dst.bytes().data(), 6) == 0 && !trace.wanted(7, 9))
        [[likely]] {
      return &d_;
    }
    return nullptr;
  }
  const Destinations& keep(Destinations d, const Wire::EthAddr& dst, uint32_t vlan) {
    d_ = std::move(d);
    changes_ = Lum::stateChanges();
    dst_ = dst;
    vlan_ = vlan;
    return d_;
  }

 private:
  uint64_t changes_ = ~uint64_t{0};  // never the count of a running process
  Wire::EthAddr dst_;
  uint32_t vlan_ = 0;
  Destinations d_;
};

}  // namespace Vxlan::L2R
