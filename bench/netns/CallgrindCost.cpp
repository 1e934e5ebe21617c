#include "bench/netns/CallgrindCost.h"

#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "platform/core/Exception.h"
#include "tests/support/Shell.h"

namespace Bench {
namespace {

// A function reference of callgrind's output ("fn=(12) name", "cfn=(12)", or a plain
// name without compression): the key that names it, and the name when given.
std::pair<std::string, std::string> functionRef(const std::string& rest) {
  if (rest.empty() || rest[0] != '(') return {rest, rest};
  const size_t close = rest.find(')');
  const std::string id = rest.substr(0, close + 1);
  return {id, close + 2 <= rest.size() ? rest.substr(close + 2) : std::string()};
}

// Sums the calls to `function` and their inclusive cost (the first event, Ir) over the
// call records of a callgrind output file, counting only calls from functions that do
// not match themselves: a part the compiler split off a function ("[clone .part.0]")
// matches the name too, and its cost is already in the call of the whole.
//   cfn=(id) [name]
//   calls=<count> <target position>
//   <source position> <inclusive Ir> ...
CallCost parseCalls(std::istream& in, const std::string& function) {
  std::map<std::string, std::string> names;
  std::set<std::string> matching;
  CallCost cost;
  std::string caller;
  std::string callee;
  std::string line;
  while (std::getline(in, line)) {
    const bool call = line.starts_with("cfn=");
    if (call || line.starts_with("fn=")) {
      const auto [key, fnName] = functionRef(line.substr(call ? 4 : 3));
      if (!fnName.empty() && fnName.find(function) != std::string::npos) matching.insert(key);
      (call ? callee : caller) = key;
      continue;
    }
    if (!line.starts_with("calls=") || !matching.contains(callee) || matching.contains(caller)) {
      continue;
    }
    cost.calls += std::stoull(line.substr(6));
    std::string costLine;
    if (!std::getline(in, costLine)) break;
    std::istringstream fields(costLine);
    std::string position;
    uint64_t ir = 0;
    fields >> position >> ir;
    cost.instructions += ir;
  }
  return cost;
}

}  // namespace

bool haveValgrind() {
  return TestSupport::run("valgrind --version").first == 0;
}

CallCost callgrindCost(const std::string& program, const std::string& filter,
                       const std::string& function, const std::string& folder) {
  const std::string out = folder + "/callgrind.out";
  // A short minimum time: the count per call does not depend on how many calls there are.
  const auto [status, output] =
      TestSupport::run("valgrind --tool=callgrind --callgrind-out-file=" + out + " " + program +
                       " '--benchmark_filter=" + filter + "' --benchmark_min_time=0.05");
  if (status != 0) throw Lum::Exception("callgrind on " + program + " failed: " + output);
  const CallCost cost = callgrindFileCost(out, function);
  if (cost.calls == 0) {
    throw Lum::Exception("callgrind saw no call of " + function + " in " + program + " " + filter);
  }
  return cost;
}

CallCost callgrindFileCost(const std::string& file, const std::string& function) {
  std::ifstream in(file);
  if (!in) throw Lum::Exception("no callgrind output " + file);
  return parseCalls(in, function);
}

}  // namespace Bench
