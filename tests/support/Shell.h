// Shell commands and network namespaces for the tests that run against the kernel.
// Every namespace a test makes is one of its own (named after the test's process) and
// goes when its guard goes, so the host's interfaces are never touched.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

// Runs a command through the shell; its exit status (-1 when it did not exit) and
// what it printed on stdout and stderr.
std::pair<int, std::string> run(const std::string& command);
// Throws std::runtime_error with the command and its output when it fails.
void runOrThrow(const std::string& command);

// Whether the running kernel is at least `major`.`minor` (for a feature that came in
// that release: a case states what the kernel before it does instead).
bool kernelAtLeast(int major, int minor);

// Every named network namespace, as `ip netns list` shows them.
std::vector<std::string> listNetworkNamespaces();

// A named network namespace for the life of the object: made by the constructor
// (which throws when `ip netns add` fails), deleted with its devices by the destructor.
class ScopedNetns {
 public:
  explicit ScopedNetns(std::string name);
  ~ScopedNetns();
  ScopedNetns(const ScopedNetns&) = delete;
  ScopedNetns& operator=(const ScopedNetns&) = delete;

  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace TestSupport
