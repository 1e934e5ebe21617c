#include "agent/CounterTableReader.h"

#include "platform/memtab/MemtabMount.h"

namespace Vxlan {

CounterTableReader::CounterTableReader(std::string_view agentName, std::string_view path)
    : reader_(LumMemtab::Mount::openReadOnly(agentName, path)) {}

CounterTablesReading CounterTableReader::counts() const {
  CounterTablesReading out;
  const std::vector<uint64_t> vxlan = reader_.elements(kVxlanCounterCollection, sizeof(uint64_t));
  const std::vector<uint64_t> varp = reader_.elements(kVarpCounterCollection, sizeof(uint32_t));
  // Ids are 16 bits wide; a longer table (its count is 32 bits) is read up to the last id.
  for (size_t i = 0; i < vxlan.size() && i <= UINT16_MAX; ++i) {
    const auto id = static_cast<uint16_t>(i);
    out.vxlan.push_back({VxlanCounterId(id), vxlanCounterName(id), vxlan[i]});
  }
  for (size_t i = 0; i < varp.size() && i <= UINT16_MAX; ++i) {
    const auto id = static_cast<uint16_t>(i);
    out.varp.push_back({VarpCounterId(id), varpCounterName(id), static_cast<uint32_t>(varp[i])});
  }
  return out;
}

}  // namespace Vxlan
