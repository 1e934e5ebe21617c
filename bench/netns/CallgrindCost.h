// Bench::callgrindCost: instructions per call of one function, counted by valgrind's
// callgrind in a run of one of the frame-path benchmarks.
//
//   CallCost c = callgrindCost(R2L_BENCH, "BM_R2LDecapFrame/64$", "R2L::decapFrame(", dir);
//   c.perCall();                        // inclusive Ir / calls
//
// The function's inclusive instruction count and its number of calls are summed over
// every call site in callgrind's output, so the benchmark's own calibration runs and
// its iteration count do not matter: each call is one frame. The function must not be
// inlined into its callers (the frame paths are libraries of their own, linked
// without link-time optimisation, so they are not).
#pragma once

#include <cstdint>
#include <string>

namespace Bench {

struct CallCost {
  uint64_t calls = 0;
  uint64_t instructions = 0;
  double perCall() const {
    return calls ? static_cast<double>(instructions) / static_cast<double>(calls) : 0;
  }
};

// Whether valgrind can be run.
bool haveValgrind();

// Runs `program --benchmark_filter=<filter>` under callgrind with its output in
// `folder`; the cost of the functions whose demangled name contains `function`.
// Throws Lum::Exception when valgrind fails or no such call was seen.
CallCost callgrindCost(const std::string& program, const std::string& filter,
                       const std::string& function, const std::string& folder);

// The cost of the functions whose demangled name contains `function` in callgrind's
// output file `file`; no call seen is a cost of 0 calls.
CallCost callgrindFileCost(const std::string& file, const std::string& function);

}  // namespace Bench
