#include "tools/ctl/CounterView.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace Ctl {

namespace {

struct Row {
  std::string name;
  uint64_t packets = 0;
  std::optional<uint64_t> bytes;
};

// A name's row and which column it fills: "...Bytes" the bytes of its row, "...Frames"
// the packets; any other name is a row of its own, counted in packets.
std::pair<std::string, bool> rowOf(std::string_view name) {
  for (const std::string_view suffix : {"Bytes", "Frames"}) {
    if (name.size() > suffix.size() && name.ends_with(suffix)) {
      return {std::string(name.substr(0, name.size() - suffix.size())), suffix == "Bytes"};
    }
  }
  return {std::string(name), false};
}

template <class Reading>
std::vector<Row> rowsOf(const std::vector<Reading>& now, const std::vector<Reading>* before) {
  std::vector<Row> rows;
  std::map<std::string, size_t> at;
  for (size_t i = 0; i < now.size(); ++i) {
    if (now[i].name.empty()) continue;  // an id nothing moves
    uint64_t n = now[i].count;
    if (before && i < before->size()) n -= std::min<uint64_t>(n, (*before)[i].count);
    const auto [name, isBytes] = rowOf(now[i].name);
    auto [it, fresh] = at.try_emplace(name, rows.size());
    if (fresh) rows.push_back(Row{name, 0, std::nullopt});
    Row& row = rows[it->second];
    if (isBytes) {
      row.bytes = n;
    } else {
      row.packets = n;
    }
  }
  return rows;
}

// `seconds` 0: counts as they are; else what moved in that many seconds, with rates.
void print(std::string& out, const char* table, const std::vector<Row>& rows, bool all,
           double seconds) {
  const bool withBytes =
      std::any_of(rows.begin(), rows.end(), [](const Row& r) { return r.bytes; });
  char line[160];
  std::snprintf(line, sizeof line, "%-28s %14s%s%s\n", table, "packets",
                withBytes ? "            bytes" : "", seconds > 0 ? "   (per second)" : "");
  out += line;
  for (const Row& r : rows) {
    if (!all && r.packets == 0 && r.bytes.value_or(0) == 0) continue;
    char bytes[24] = "";
    if (r.bytes)
      std::snprintf(bytes, sizeof bytes, " %16llu", static_cast<unsigned long long>(*r.bytes));
    std::string rate;
    if (seconds > 0) {
      char text[64];
      std::snprintf(text, sizeof text, "   (%.1f", static_cast<double>(r.packets) / seconds);
      rate = text;
      if (r.bytes) {
        std::snprintf(text, sizeof text, ", %.1f", static_cast<double>(*r.bytes) / seconds);
        rate += text;
      }
      rate += ")";
    }
    std::snprintf(line, sizeof line, "  %-26s %14llu%s%s\n", r.name.c_str(),
                  static_cast<unsigned long long>(r.packets), bytes, rate.c_str());
    out += line;
  }
}

}  // namespace

std::string counterView(const Vxlan::CounterTablesReading& now, bool all,
                        std::optional<Since> since) {
  std::string out;
  const double seconds = since ? since->seconds : 0;
  print(out, "vxlan counters", rowsOf(now.vxlan, since ? &since->before->vxlan : nullptr), all,
        seconds);
  print(out, "varp counters", rowsOf(now.varp, since ? &since->before->varp : nullptr), all,
        seconds);
  return out;
}

}  // namespace Ctl
