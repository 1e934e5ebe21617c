// Ctl::CounterView: the counter tables as vxrelayctl prints them, in the way of
// `ip -s`: a header per table, a counter's packets and bytes side by side on one row
// (l2rRxFrames and l2rRxBytes are the row l2rRx), and only the rows that are not zero
// unless all are asked for. Pure formatting: the tool reads, this prints.
//
//   vxlan counters                   packets            bytes
//     l2rRx                              195           277484
//     r2lBadLength                         3
//   varp counters                    packets
//     arpCacheUpdated                      2
//
// With a previous reading and the seconds between, each row shows what moved since,
// with its rate per second (`--interval`).
#pragma once

#include <optional>
#include <string>

#include "agent/CounterTableReader.h"

namespace Ctl {

struct Since {
  const Vxlan::CounterTablesReading* before;
  double seconds;
};

std::string counterView(const Vxlan::CounterTablesReading& now, bool all,
                        std::optional<Since> since = std::nullopt);

}  // namespace Ctl
