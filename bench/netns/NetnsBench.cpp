// netns_bench: frames per second of the agent's two forwarding paths against the
// kernel's own VXLAN doing the same job, in network namespaces of its own, and the
// instructions per frame of the two per-frame functions under callgrind.
// bench/netns/README.md says how it works and what it measured. Needs root.
//
//   netns_bench [--seconds S] [--repeat N] [--generator-cpu C] [--path-cpu C]
//               [--no-callgrind | --callgrind-only]
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "bench/netns/BenchTopology.h"
#include "bench/netns/CallgrindCost.h"
#include "bench/netns/FrameGenerator.h"
#include "bench/netns/LoopCost.h"
#include "bench/netns/Measurement.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace Bench {
namespace {

constexpr size_t kSizes[] = {64, 512};

struct Options {
  Settings settings;
  int generatorCpu = 0;
  int pathCpu = 1;
  Receive receive = Receive::napi;
  bool traffic = true;
  bool callgrind = true;
  std::vector<Direction> directions{Direction::r2l, Direction::l2r};
};

void onSignal(int) {
  FrameGenerator::interrupt();
}

// Ctrl-C or a kill ends the generator's run with an exception, so that the topologies'
// destructors remove the namespaces, the host and the files.
void catchStopSignals() {
  struct sigaction sa {};
  sa.sa_handler = onSignal;
  sigemptyset(&sa.sa_mask);
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(sig, &sa, nullptr);
}

// The whole process runs on the generator's CPU: its own thread and every command it
// starts. The agent host is moved to the path's CPU by `taskset` as it starts.
void pinTo(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu, &set);
  if (::sched_setaffinity(0, sizeof set, &set) != 0) {
    throw std::runtime_error("cannot pin the generator to CPU " + std::to_string(cpu));
  }
}

std::string loadAverage() {
  const std::string text = TestSupport::fileText("/proc/loadavg");
  return text.substr(0, text.find(' ', text.find(' ', text.find(' ') + 1) + 1));
}

// What a frame cost the path CPU at each path's peak, and the rates those costs allow:
// a path that took all the generator gave it shows its capacity here, not above.
void printCosts(const std::vector<Row>& rows) {
  std::printf("\n%-3s %5s %-8s %9s %9s %8s %8s %10s %8s\n", "dir", "bytes", "mode", "path CPU",
              "us/frame", "polling", "agent", "capacity", "ratio");
  for (size_t i = 0; i + 1 < rows.size(); i += 2) {
    const double v = rows[i].peak.microsPerFrame();
    const double k = rows[i + 1].peak.microsPerFrame();
    for (const Row& r : {rows[i], rows[i + 1]}) {
      const Sample& p = r.peak;
      const double us = p.microsPerFrame();
      const double busy = p.seconds > 0 ? 100 * p.pathBusy / p.seconds : 0;
      const std::string ratio = r.path == Path::vxrelay && v > 0 ? std::to_string(k / v) : "";
      std::printf("%-3s %5zu %-8s %8.0f%% %9.2f %8s %8.2f %10.0f %8s\n", name(r.direction), r.size,
                  name(r.path), busy, us, p.pollingPerFrame().c_str(), p.perFrame(p.spent.agent),
                  us > 0 ? 1e6 / us : 0, ratio.substr(0, 5).c_str());
    }
  }
  std::printf(
      "(at the peak run: the path CPU's busy share; its busy time per frame delivered, and of "
      "it the polling threads' and the agent host's; the frames per second that cost allows "
      "with the CPU fully busy; ratio: vxrelay / kernel capacity)\n");
}

void printTable(const std::vector<Row>& rows) {
  std::printf("\n%-3s %5s %-8s %10s %10s | %10s %10s %6s | %10s %10s %7s\n", "dir", "bytes", "mode",
              "flat offer", "delivered", "peak offer", "delivered", "ratio", "ovl offer",
              "delivered", "% peak");
  for (size_t i = 0; i + 1 < rows.size(); i += 2) {
    const double ratio = rows[i].peak.delivered / std::max(rows[i + 1].peak.delivered, 1.0);
    for (const Row& r : {rows[i], rows[i + 1]}) {
      const double pct = 100.0 * r.overload.delivered / std::max(r.peak.delivered, 1.0);
      std::printf("%-3s %5zu %-8s %10.0f %10.0f | %10.0f %10.0f %6s | %10.0f %10.0f %6.1f%%\n",
                  name(r.direction), r.size, name(r.path), r.flatOut.offered, r.flatOut.delivered,
                  r.peak.offered, r.peak.delivered,
                  r.path == Path::vxrelay ? std::to_string(ratio).substr(0, 5).c_str() : "",
                  r.overload.offered, r.overload.delivered, pct);
    }
  }
  std::printf(
      "(peak: the most delivered flat out or paced below it; ratio: vxrelay / kernel at "
      "peak; %% peak: delivered under overload as a share of the same path's peak)\n");
  printCosts(rows);
}

bool runTraffic(const Options& opt) {
  std::printf(
      "netns_bench: %.1f s per run, %d runs per figure, generator on CPU %d, paths on "
      "CPU %d (%s), load average %s\n",
      opt.settings.duration.count(), opt.settings.repeat, opt.generatorCpu, opt.pathCpu,
      opt.receive == Receive::napi ? "polling threads" : "receive packet steering",
      loadAverage().c_str());
  BenchTopology vxrelay(Path::vxrelay, opt.pathCpu, opt.generatorCpu, opt.receive);
  BenchTopology kernel(Path::kernel, opt.pathCpu, opt.generatorCpu, opt.receive);
  std::vector<Row> rows;
  for (Direction d : opt.directions) {
    for (size_t size : kSizes) {
      const auto [v, k] = measureCase(vxrelay, kernel, d, size, opt.settings);
      rows.push_back(v);
      rows.push_back(k);
    }
  }
  printTable(rows);
  std::printf("load average at the end: %s\n", loadAverage().c_str());
  const bool ok = countersAddUp(vxrelay.topo().counters());
  if (!vxrelay.topo().hostRunning()) {
    std::printf("the agent host has stopped: %s\n", vxrelay.topo().hostOutput().c_str());
    return false;
  }
  return ok;
}

void runCallgrind() {
  if (!haveValgrind()) {
    std::printf(
        "\ncallgrind: valgrind is not installed (scripts/install-deps.sh bench): skipped\n");
    return;
  }
  struct Target {
    const char* program;
    const char* function;
    const char* filterFormat;
  };
  const Target targets[] = {
      {R2L_FRAME_PATH_BENCH, "R2L::decapFrame", "BM_R2LDecapFrame/%zu$"},
      {L2R_FRAME_PATH_BENCH, "L2R::encapFrame", "BM_L2REncapFrame/bytes:%zu/vteps:1$"},
  };
  TestSupport::TempDir dir("vxbench");
  std::printf("\ninstructions per frame under callgrind (inclusive Ir / calls):\n");
  for (const Target& t : targets) {
    for (size_t size : kSizes) {
      char filter[64];
      std::snprintf(filter, sizeof filter, t.filterFormat, size);
      const CallCost c =
          callgrindCost(t.program, filter, std::string(t.function) + "(", dir.path().string());
      std::printf("  %-16s %4zu B  %7.1f instructions/frame  (%llu calls)\n", t.function, size,
                  c.perCall(), static_cast<unsigned long long>(c.calls));
    }
  }
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
  Bench::Options opt;
  double seconds = opt.settings.duration.count();
  bool noCallgrind = false;
  bool callgrindOnly = false;
  CLI::App app{"vxrelay against the kernel's VXLAN in network namespaces (needs root)"};
  app.add_option("--seconds", seconds, "generator time per run")->check(CLI::Range(0.1, 60.0));
  app.add_option("--repeat", opt.settings.repeat, "runs per figure")->check(CLI::Range(1, 20));
  app.add_option("--generator-cpu", opt.generatorCpu, "the generator's CPU");
  app.add_option("--path-cpu", opt.pathCpu, "the agent host's (or the kernel path's) CPU");
  std::string frameMode = "batch";
  app.add_option("--frame-mode", frameMode, "the agent's frame mode (VXRELAY_FRAME_MODE)")
      ->check(CLI::IsMember({"batch", "single", "filtered"}));
  std::string direction = "both";
  app.add_option("--direction", direction, "the direction(s) measured")
      ->check(CLI::IsMember({"both", "r2l", "l2r"}));
  std::string receive = "napi";
  app.add_option("--receive", receive,
                 "how the switch takes frames on the path's CPU: its devices' polling "
                 "threads (napi) or receive packet steering (rps)")
      ->check(CLI::IsMember({"napi", "rps"}));
  app.add_flag("--no-callgrind", noCallgrind, "skip the instruction counts");
  std::string keep;
  app.add_option("--keep-callgrind", keep, "a folder that keeps the frame loops' callgrind outputs")
      ->check(CLI::ExistingDirectory);
  app.add_flag("--callgrind-only", callgrindOnly, "only the instruction counts");
  CLI11_PARSE(app, argc, argv);
  opt.settings.duration = std::chrono::duration<double>(seconds);
  opt.settings.pathCpu = opt.pathCpu;
  opt.traffic = !callgrindOnly;
  opt.receive = receive == "rps" ? Bench::Receive::rps : Bench::Receive::napi;
  opt.callgrind = !noCallgrind;
  if (direction != "both") {
    opt.directions = {direction == "r2l" ? Bench::Direction::r2l : Bench::Direction::l2r};
  }
  // The agent host inherits it and reads it when the agent library loads.
  ::setenv("VXRELAY_FRAME_MODE", frameMode.c_str(), 1);

  try {
    bool ok = true;
    if (opt.traffic) {
      if (::geteuid() != 0) {
        std::fprintf(stderr, "netns_bench: network namespaces need root (run as root)\n");
        return 2;
      }
      Bench::catchStopSignals();
      Bench::pinTo(opt.generatorCpu);
      ok = Bench::runTraffic(opt);
    }
    if (opt.callgrind) {
      Bench::runCallgrind();
      if (::geteuid() == 0 && Bench::haveValgrind()) {
        Bench::runLoopCost(opt.pathCpu, opt.generatorCpu, keep);
      }
    }
    return ok ? 0 : 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "netns_bench: %s\n", e.what());
    return 1;
  }
}
