// Vxlan::CounterTableReader: the agent's counter tables as another program sees them,
// through a read-only mapping of the shared table (the command-line tool reads them
// so).
//
//   Vxlan::CounterTableReader reader("vxlan");   // the agent's name
//   for (const auto& c : reader.counts().vxlan) std::cout << c.name << " " << c.count;
//
// The reader never writes the table; it sees counts as the agent last stored them,
// each one whole. Every counts() checks the header first (see
// LumMemtab::TableReader), so a damaged table or one laid out again since the reader
// opened it is reported rather than read.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "agent/SharedMemoryCounterStorage.h"
#include "agent/VxlanCounterId.h"
#include "platform/memtab/MemtabTable.h"

namespace Vxlan {

struct VxlanCounterReading {
  VxlanCounterId id{};
  // "" for an id that nothing moves.
  std::string_view name;
  uint64_t count = 0;
};

struct VarpCounterReading {
  VarpCounterId id{};
  std::string_view name;
  uint32_t count = 0;
};

// Every id of each table in id order, the unused ones too: the table as it is.
struct CounterTablesReading {
  std::vector<VxlanCounterReading> vxlan;
  std::vector<VarpCounterReading> varp;

  // The count of one id; 0 for an id beyond a table of another geometry.
  uint64_t count(VxlanCounterId id) const {
    const size_t i = static_cast<size_t>(id);
    return i < vxlan.size() ? vxlan[i].count : 0;
  }
  uint32_t count(VarpCounterId id) const {
    const size_t i = static_cast<size_t>(id);
    return i < varp.size() ? varp[i].count : 0;
  }
};

class CounterTableReader {
 public:
  // Opens the table that agent `agentName` mounted at `path`. Throws
  // Lum::ErrnoException when it cannot be opened (errno ENOENT: no such table) and
  // Memtab::CorruptionDetectedException when its header is damaged.
  explicit CounterTableReader(std::string_view agentName,
                              std::string_view path = kCounterTablePath);

  // Throws Memtab::CorruptionDetectedException when the table is damaged, laid out
  // again since it was opened, or lacks a collection of the width the agent writes.
  CounterTablesReading counts() const;

 private:
  LumMemtab::TableReader reader_;
};

}  // namespace Vxlan
