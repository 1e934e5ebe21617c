// Bench::measureCase: one direction and frame size, measured on both paths.
//
// A measurement warms the path up (frames until the far end counts one), lets it
// drain, then runs the generator for the set time and waits for the queues to empty
// before reading the far end's count again: delivered = frames counted there / the
// generator's running time. Both loads are measured `repeat` times, the vxrelay and the
// kernel path taking turns (vxrelay, kernel, vxrelay, kernel, ...), so that whatever
// else the machine does in the meantime falls on both alike; each figure is the median
// of its runs.
//
//   flat out  the generator as fast as it goes.
//   peak      the most that arrives at any of the loads tried: flat out, and paced at
//             1.25, 1.5 and 2 times what arrived flat out (below the flat-out rate). A
//             path that spends its CPU on frames it then drops delivers less the more
//             it is offered, and so peaks below flat out; a path that took all it was
//             offered flat out is not tried further (its peak is the generator's).
//   overload  the generator at three times the path's peak (as far as it gets there:
//             the rate it reached is what is reported as offered).
//
// Each run also takes the path CPU's busy time (user, system, interrupt and softirq
// time in /proc/stat) from the generator's start to the end of the drain: divided by
// the frames delivered it is what a frame costs the path, whether or not the generator
// kept the path busy. A path that took all it was offered says nothing of its peak by
// its rate; by its cost per frame it does. The polling threads' and the agent host's
// own times (schedstat) split that cost.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "agent/CounterTableReader.h"
#include "bench/netns/BenchTopology.h"

namespace Bench {

struct Settings {
  std::chrono::duration<double> duration{3.0};
  int repeat = 3;
  int pathCpu = 1;
};

// What one load did: rates in frames per second, and for the vxrelay path the frames
// that the agent counted as written (r2lTxFrames or l2rTxFrames) beside the frames
// the far end got, over the median run.
struct Sample {
  double offered = 0;
  double delivered = 0;
  uint64_t agentWrote = 0;
  uint64_t farEndGot = 0;
  double pathBusy = 0;  // seconds of the path CPU's busy time over the run and its drain
  double seconds = 0;   // how long that was
  PathTimes spent;      // of it, the polling threads' and the agent host's time

  // Microseconds per frame delivered of `busy` seconds (0 when no frame was).
  double perFrame(double busy) const {
    return farEndGot ? 1e6 * busy / static_cast<double>(farEndGot) : 0;
  }
  double microsPerFrame() const { return perFrame(pathBusy); }
  // The polling threads' share per frame as text, "-" without polling threads.
  std::string pollingPerFrame() const;
};

struct Row {
  Direction direction;
  size_t size;
  Path path;
  Sample flatOut;
  Sample peak;
  Sample overload;
};

// Measures one direction and size on both topologies; the vxrelay row first.
std::pair<Row, Row> measureCase(BenchTopology& vxrelay, BenchTopology& kernel, Direction d,
                                size_t size, const Settings& settings);

// Whether the agent's counters add up, each direction's received frames being its
// forwarded frames plus each of its drop counters; prints one line per direction.
bool countersAddUp(const Vxlan::CounterTablesReading& counters);

}  // namespace Bench
