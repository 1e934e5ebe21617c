// Fpemu::MacTable: where the emulated switch has seen each source MAC address, per
// VLAN: a host port (by its index in the port list) or the agent ("remote", learnt
// from "txraw"). An address seen elsewhere moves there. Entries do not age; the table
// is bounded, and an address that does not fit is not learnt (its frames flood).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

namespace Fpemu {

class MacTable {
 public:
  static constexpr int kRemote = -1;
  enum class Learnt : uint8_t { known, added, moved, full };

  explicit MacTable(size_t capacity = 16384) : capacity_(capacity) {}

  Learnt learn(uint16_t vlan, uint64_t mac, int where);
  // The port index or kRemote; empty when the address is unknown in the VLAN.
  std::optional<int> lookup(uint16_t vlan, uint64_t mac) const;
  size_t size() const { return entries_.size(); }

 private:
  static uint64_t key(uint16_t vlan, uint64_t mac) { return uint64_t{vlan} << 48 | mac; }

  size_t capacity_;
  std::unordered_map<uint64_t, int> entries_;
};

}  // namespace Fpemu
