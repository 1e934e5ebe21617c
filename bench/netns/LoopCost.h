// Bench::runLoopCost: the agent's own user-space work per frame in its whole frame
// loops, as the target "instructions per frame" means it: the host runs under
// callgrind in the benchmark's topology (with its trace ring open, as always there),
// the generator sends a paced stream through each direction, and the inclusive cost
// of every call of the two frame-loop handlers is divided by the frames they read.
// The handlers hold everything between the readable event and the next wait: the ring
// or the reads, the per-frame function, destination selection, counters, traces and
// the writes, but not the kernel's side of the system calls, which callgrind does not
// see. Needs root and valgrind.
#pragma once

#include <string>

namespace Bench {

// Prints one line per direction and traffic; throws Lum::Exception when a step fails.
// With `keep` (a folder) callgrind's outputs stay there (callgrind.out.0 paced,
// callgrind.out.1 in bursts), for callgrind_annotate.
void runLoopCost(int pathCpu, int generatorCpu, const std::string& keep = "");

}  // namespace Bench
