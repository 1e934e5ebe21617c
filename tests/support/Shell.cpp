#include "tests/support/Shell.h"

#include <sys/utsname.h>
#include <sys/wait.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace TestSupport {

std::pair<int, std::string> run(const std::string& command) {
  std::string out;
  FILE* p = ::popen((command + " 2>&1").c_str(), "r");
  if (!p) return {-1, "popen failed"};
  char buf[512];
  while (size_t n = std::fread(buf, 1, sizeof buf, p)) out.append(buf, n);
  const int status = ::pclose(p);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

void runOrThrow(const std::string& command) {
  auto [status, out] = run(command);
  if (status != 0) throw std::runtime_error("`" + command + "` failed: " + out);
}

bool kernelAtLeast(int major, int minor) {
  utsname u{};
  int ma = 0, mi = 0;
  return ::uname(&u) == 0 && std::sscanf(u.release, "%d.%d", &ma, &mi) == 2 &&
         (ma > major || (ma == major && mi >= minor));
}

std::vector<std::string> listNetworkNamespaces() {
  auto [status, out] = run("ip netns list");
  if (status != 0) throw std::runtime_error("`ip netns list` failed: " + out);
  std::vector<std::string> names;
  std::istringstream lines(out);
  // Lines read "name" or "name (id: 3)".
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find(' '));
    if (!name.empty()) names.push_back(name);
  }
  return names;
}

ScopedNetns::ScopedNetns(std::string name) : name_(std::move(name)) {
  runOrThrow("ip netns add " + name_);
}

ScopedNetns::~ScopedNetns() {
  run("ip netns del " + name_);
}

}  // namespace TestSupport
