#include "tools/fpemu/MacTable.h"

namespace Fpemu {

MacTable::Learnt MacTable::learn(uint16_t vlan, uint64_t mac, int where) {
  const auto it = entries_.find(key(vlan, mac));
  if (it != entries_.end()) {
    if (it->second == where) return Learnt::known;
    it->second = where;
    return Learnt::moved;
  }
  if (entries_.size() >= capacity_) return Learnt::full;
  entries_.emplace(key(vlan, mac), where);
  return Learnt::added;
}

std::optional<int> MacTable::lookup(uint16_t vlan, uint64_t mac) const {
  const auto it = entries_.find(key(vlan, mac));
  if (it == entries_.end()) return std::nullopt;
  return it->second;
}

}  // namespace Fpemu
