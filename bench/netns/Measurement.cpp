#include "bench/netns/Measurement.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "bench/netns/FrameGenerator.h"
#include "platform/core/Exception.h"

namespace Bench {
namespace {

using namespace std::chrono_literals;
using Id = Vxlan::VxlanCounterId;

// Long enough for the backlogs and socket queues to empty after the generator stops.
constexpr auto kDrain = 300ms;
constexpr auto kWarmUpLimit = 10s;
constexpr unsigned kWarmUpFrames = 32;
constexpr double kOverloadFactor = 3.0;
// The paced loads tried for the peak, as multiples of what arrived flat out.
constexpr double kPeakSearch[] = {1.25, 1.5, 2.0};
// Flat out, a path that delivered this share of what it was offered took it all.
constexpr double kTookAll = 0.97;

uint64_t agentCount(BenchTopology& t, Id id) {
  return t.path() == Path::vxrelay ? t.topo().counters().count(id) : 0;
}

// The CPU's busy time so far, in seconds: user, nice, system, irq and softirq from its
// line of /proc/stat. Idle, I/O wait and steal (time the hypervisor gave elsewhere) are
// not the path's work.
double busySeconds(int cpu) {
  std::ifstream stat("/proc/stat");
  const std::string tag = "cpu" + std::to_string(cpu);
  for (std::string line; std::getline(stat, line);) {
    std::istringstream fields(line);
    std::string name;
    uint64_t user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0;
    fields >> name >> user >> nice >> system >> idle >> iowait >> irq >> softirq;
    if (name == tag && fields) {
      return static_cast<double>(user + nice + system + irq + softirq) /
             static_cast<double>(::sysconf(_SC_CLK_TCK));
    }
  }
  throw Lum::Exception("no line for " + tag + " in /proc/stat");
}

// The path's CPU time from its construction to take(): the CPU's busy time, the
// polling threads' and the agent host's, and the wall time they were taken over.
class CpuMeter {
 public:
  CpuMeter(BenchTopology& t, int cpu)
      : t_(t),
        cpu_(cpu),
        busy_(busySeconds(cpu)),
        times_(t.cpuTimes()),
        start_(std::chrono::steady_clock::now()) {}
  void take(Sample& s) const {
    s.pathBusy = busySeconds(cpu_) - busy_;
    const PathTimes now = t_.cpuTimes();
    s.spent.agent = now.agent - times_.agent;
    if (now.polling && times_.polling) s.spent.polling = *now.polling - *times_.polling;
    s.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  BenchTopology& t_;
  int cpu_;
  double busy_;
  PathTimes times_;
  std::chrono::steady_clock::time_point start_;
};

Id agentWrites(Direction d) {
  return d == Direction::r2l ? Id::r2lTxFrames : Id::l2rTxFrames;
}

// Writes a few frames at a time until the far end counts one: the path is up (the
// agent's sockets open, the kernel's forwarding databases learned).
void warmUp(BenchTopology& t, FrameGenerator& gen, Direction d) {
  const Port out = t.output(d);
  const uint64_t before = rxPackets(out);
  const auto deadline = std::chrono::steady_clock::now() + kWarmUpLimit;
  while (rxPackets(out) == before) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw Lum::Exception(
          std::string(name(d)) + " " + name(t.path()) + ": nothing reached " + out.device +
          (t.path() == Path::vxrelay ? "; host output: " + t.topo().hostOutput() : std::string()));
    }
    gen.burst(kWarmUpFrames);
    std::this_thread::sleep_for(50ms);
  }
  std::this_thread::sleep_for(kDrain);
}

Sample measure(BenchTopology& t, FrameGenerator& gen, Direction d, size_t size, double pps,
               const Settings& settings) {
  warmUp(t, gen, d);
  const Port out = t.output(d);
  const uint64_t got = rxPackets(out);
  const uint64_t wrote = agentCount(t, agentWrites(d));
  // The remote socket on the underlay is a packet socket of all types: it reads the
  // datagrams that the agent itself sends there too, and filters them.
  const uint64_t readBack = agentCount(t, Id::r2lFilteredFrames);
  const CpuMeter cpu(t, settings.pathCpu);
  const Offered o = gen.run(pps, settings.duration);
  std::this_thread::sleep_for(kDrain);
  Sample s;
  cpu.take(s);
  s.farEndGot = rxPackets(out) - got;
  s.agentWrote = agentCount(t, agentWrites(d)) - wrote;
  s.offered = o.pps();
  s.delivered = static_cast<double>(s.farEndGot) / o.seconds;
  std::printf(
      "  %s %4zu B %-8s %-9s offered %10.0f pps  delivered %10.0f pps  path CPU %3.0f%% %5.2f "
      "us/frame",
      name(d), size, name(t.path()), pps > 0 ? "paced" : "flat out", s.offered, s.delivered,
      100 * s.pathBusy / s.seconds, s.microsPerFrame());
  std::printf(" (polling %s", s.pollingPerFrame().c_str());
  if (t.path() == Path::vxrelay) {
    std::printf(", agent %.2f; agent wrote %llu, far end got %llu", s.perFrame(s.spent.agent),
                static_cast<unsigned long long>(s.agentWrote),
                static_cast<unsigned long long>(s.farEndGot));
    if (d == Direction::l2r) {
      std::printf("; read back %llu of its own",
                  static_cast<unsigned long long>(agentCount(t, Id::r2lFilteredFrames) - readBack));
    }
  }
  std::printf(")");
  std::printf("\n");
  std::fflush(stdout);
  return s;
}

// The median of each rate over the runs (of an even number, the upper middle one),
// with the agent's and the far end's counts of the run whose delivered rate it is.
Sample median(std::vector<Sample> runs) {
  const size_t mid = runs.size() / 2;
  std::sort(runs.begin(), runs.end(),
            [](const Sample& a, const Sample& b) { return a.offered < b.offered; });
  const double offered = runs[mid].offered;
  std::sort(runs.begin(), runs.end(),
            [](const Sample& a, const Sample& b) { return a.delivered < b.delivered; });
  Sample m = runs[mid];
  m.offered = offered;
  return m;
}

// Loads: 0 is flat out, a negative one is not run.
constexpr double kNotRun = -1;

// The load of a peak search step for a path whose flat-out figure is `flat`; kNotRun
// when the path took all it was offered, or the step is not below flat out.
double searchLoad(const Sample& flat, double factor) {
  const double pps = factor * flat.delivered;
  const bool tried = flat.delivered < kTookAll * flat.offered && pps > 0 && pps < flat.offered;
  return tried ? pps : kNotRun;
}

// `repeat` runs of each path at its load, taking turns; the medians (an empty sample
// for a path not run).
std::pair<Sample, Sample> runBoth(BenchTopology& vxrelay, FrameGenerator& vgen, double vpps,
                                  BenchTopology& kernel, FrameGenerator& kgen, double kpps,
                                  Direction d, size_t size, const Settings& settings) {
  std::vector<Sample> vRuns, kRuns;
  for (int i = 0; i < settings.repeat; ++i) {
    if (vpps >= 0) vRuns.push_back(measure(vxrelay, vgen, d, size, vpps, settings));
    if (kpps >= 0) kRuns.push_back(measure(kernel, kgen, d, size, kpps, settings));
  }
  return {vRuns.empty() ? Sample{} : median(vRuns), kRuns.empty() ? Sample{} : median(kRuns)};
}

}  // namespace

std::string Sample::pollingPerFrame() const {
  if (!spent.polling) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", perFrame(*spent.polling));
  return text;
}

std::pair<Row, Row> measureCase(BenchTopology& vxrelay, BenchTopology& kernel, Direction d,
                                size_t size, const Settings& settings) {
  const Port vin = vxrelay.input(d);
  const Port kin = kernel.input(d);
  FrameGenerator vgen(vin.netns, vin.device, vxrelay.frame(d, size));
  FrameGenerator kgen(kin.netns, kin.device, kernel.frame(d, size));
  Row v{d, size, Path::vxrelay, {}, {}, {}};
  Row k{d, size, Path::kernel, {}, {}, {}};
  const auto both = [&](double vpps, double kpps) {
    return runBoth(vxrelay, vgen, vpps, kernel, kgen, kpps, d, size, settings);
  };
  std::tie(v.flatOut, k.flatOut) = both(0, 0);
  v.peak = v.flatOut;
  k.peak = k.flatOut;
  for (double factor : kPeakSearch) {
    const double vpps = searchLoad(v.flatOut, factor);
    const double kpps = searchLoad(k.flatOut, factor);
    if (vpps == kNotRun && kpps == kNotRun) continue;
    // A path not run comes back empty, which never beats its peak.
    const auto [vs, ks] = both(vpps, kpps);
    if (vs.delivered > v.peak.delivered) v.peak = vs;
    if (ks.delivered > k.peak.delivered) k.peak = ks;
  }
  std::tie(v.overload, k.overload) =
      both(kOverloadFactor * v.peak.delivered, kOverloadFactor * k.peak.delivered);
  return {v, k};
}

bool countersAddUp(const Vxlan::CounterTablesReading& c) {
  struct Balance {
    const char* direction;
    Id received;
    std::vector<Id> outcomes;  // forwarded first, then every drop counter
  };
  // A run cut short by its time budget drops nothing: the frames wait in the socket.
  // Frames a receive ring had no room for count as received and as socket errors
  // (R2L) or read errors (L2R); a failed read of the one-frame mode counts no frame
  // received, and none fails here.
  const Balance balances[] = {
      {"R2L",
       Id::r2lRxFrames,
       {Id::r2lTxFrames, Id::r2lFilteredFrames, Id::r2lBadLength, Id::r2lBadFlags,
        Id::r2lUnknownVlan, Id::r2lSocketErrors}},
      {"L2R",
       Id::l2rRxFrames,
       {Id::l2rForwardFrames, Id::l2rBadLength, Id::l2rBadVlan, Id::l2rNoVni, Id::l2rPeerLinkDrops,
        Id::l2rNoDestination, Id::l2rArpHerDrops, Id::l2rReadErrors}},
  };
  bool all = true;
  for (const Balance& b : balances) {
    uint64_t sum = 0;
    std::string terms;
    for (Id id : b.outcomes) {
      sum += c.count(id);
      terms += (terms.empty() ? "" : " + ") +
               std::string(c.vxlan.at(static_cast<size_t>(id)).name) + " " +
               std::to_string(c.count(id));
    }
    const bool ok = sum == c.count(b.received);
    all = all && ok;
    std::printf("agent counters %s: %s %llu %s %s: %s\n", b.direction,
                std::string(c.vxlan.at(static_cast<size_t>(b.received)).name).c_str(),
                static_cast<unsigned long long>(c.count(b.received)),
                ok ? "==" : "!=", terms.c_str(), ok ? "they add up" : "THEY DO NOT ADD UP");
  }
  return all;
}

}  // namespace Bench
