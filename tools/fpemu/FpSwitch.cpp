#include "tools/fpemu/FpSwitch.h"

#include <utility>

namespace Fpemu {

FpSwitch::FpSwitch(std::vector<PortConfig> ports, size_t macCapacity)
    : ports_(std::move(ports)), macs_(macCapacity) {}

void FpSwitch::reset() {
  d_.drop = Drop::none;
  d_.vlan = 0;
  d_.in = Ingress{};
  d_.toAgent = false;
  d_.ports.clear();
}

const Decision& FpSwitch::dropped(Drop why) {
  d_.drop = why;
  d_.toAgent = false;
  d_.ports.clear();
  if (const auto c = Counters::ofDrop(why)) counters_.add(*c);
  return d_;
}

void FpSwitch::learn(uint16_t vlan, const uint8_t* src, int where) {
  if (isGroupMac(src)) return;
  switch (macs_.learn(vlan, macOf(src), where)) {
    case MacTable::Learnt::known:
      break;
    case MacTable::Learnt::added:
      counters_.add(Counter::macsLearnt);
      break;
    case MacTable::Learnt::moved:
      counters_.add(Counter::macMoves);
      break;
    case MacTable::Learnt::full:
      counters_.add(Counter::macTableFull);
      break;
  }
}

void FpSwitch::flood(uint16_t vlan, int except) {
  for (size_t i = 0; i < ports_.size(); ++i) {
    if (static_cast<int>(i) != except && ports_[i].carries(vlan)) {
      d_.ports.push_back(static_cast<int>(i));
    }
  }
}

const Decision& FpSwitch::fromPort(int port, std::span<const uint8_t> frame) {
  reset();
  counters_.add(Counter::portRxFrames);
  d_.in = classify(ports_.at(static_cast<size_t>(port)), frame);
  if (d_.in.drop != Drop::none) return dropped(d_.in.drop);
  d_.vlan = d_.in.vlan;
  learn(d_.vlan, frame.data() + 6, port);
  const std::optional<int> at =
      isGroupMac(frame.data()) ? std::nullopt : macs_.lookup(d_.vlan, macOf(frame.data()));
  if (!at) {
    counters_.add(Counter::portFloodFrames);
    d_.toAgent = true;
    flood(d_.vlan, port);
  } else if (*at == MacTable::kRemote) {
    counters_.add(Counter::portRemoteFrames);
    d_.toAgent = true;
  } else if (*at == port) {
    return dropped(Drop::sameSegment);
  } else {
    counters_.add(Counter::portLocalFrames);
    d_.ports.push_back(*at);
  }
  if (!d_.ports.empty()) innerOf(frame, d_.in, d_.inner);
  return d_;
}

const Decision& FpSwitch::fromTxRaw(std::span<const uint8_t> frame) {
  reset();
  counters_.add(Counter::txRawRxFrames);
  const TxRaw t = txRawOf(frame, d_.inner);
  if (t.drop != Drop::none) return dropped(t.drop);
  if (trappedArpPort_ && t.portId == *trappedArpPort_ && d_.inner.size() >= kEthHdrLen &&
      d_.inner[kMacBytes] == 0x08 && d_.inner[kMacBytes + 1] == 0x06) {
    return dropped(Drop::txRawTrappedArp);
  }
  d_.vlan = t.vlan;
  return fromOverlay({Counter::txRawLocalFrames, Counter::txRawFloodFrames, Drop::txRawUnknownVlan,
                      Drop::txRawToRemote});
}

const Decision& FpSwitch::fromFabric(std::span<const uint8_t> packet) {
  reset();
  counters_.add(Counter::fabricRxFrames);
  const Fabric f = fabricOf(packet, d_.inner);
  if (f.drop != Drop::none) return dropped(f.drop);
  const auto vlan = vniToVlan_.find(f.vni);
  if (vlan == vniToVlan_.end()) return dropped(Drop::fabricUnknownVni);
  d_.vlan = vlan->second;
  return fromOverlay({Counter::fabricLocalFrames, Counter::fabricFloodFrames,
                      Drop::fabricUnknownVlan, Drop::fabricToRemote});
}

const Decision& FpSwitch::fromOverlay(const OverlayPath& path) {
  bool carried = false;
  for (const PortConfig& p : ports_) carried = carried || p.carries(d_.vlan);
  if (!carried) return dropped(path.unknownVlan);
  learn(d_.vlan, d_.inner.data() + 6, MacTable::kRemote);
  const std::optional<int> at =
      isGroupMac(d_.inner.data()) ? std::nullopt : macs_.lookup(d_.vlan, macOf(d_.inner.data()));
  if (!at) {
    counters_.add(path.flooded);
    flood(d_.vlan, MacTable::kRemote);
  } else if (*at == MacTable::kRemote) {
    return dropped(path.toRemote);
  } else {
    counters_.add(path.local);
    d_.ports.push_back(*at);
  }
  return d_;
}

}  // namespace Fpemu
