// TestSupport::ChildProcess: a program of this build run as a child, its stdout and
// stderr in one file, killed and reaped when the object goes if it still runs.
//
//   TestSupport::ChildProcess host({VXRELAY_HOST, "--name", name}, dir.file("host.log"),
//                                  {"RINGLOG_DISABLE=1"});
//   ASSERT_TRUE(TestSupport::eventually([&] { return ready(); }, 5s));
//   host.stop();                            // SIGTERM, then SIGKILL when it lingers
//   EXPECT_TRUE(host.exitWithin(1s));
//
// stderr goes to a file of its own when `errorFile` names one.
// The program is looked up on PATH when its name has no slash, so that
// `ip netns exec NS PROGRAM` works as well; the child's pid is then the program's.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

using Bound = std::chrono::steady_clock::duration;

// Polls `done` until it holds or `bound` has passed; says which.
bool eventually(const std::function<bool()>& done, Bound bound);

// The whole content of a text file, empty when it cannot be read.
std::string fileText(const std::string& path);

class ChildProcess {
 public:
  // `env` entries ("NAME=value") replace the variables of that name in this process's
  // environment. Throws std::runtime_error when the program cannot be started.
  ChildProcess(const std::vector<std::string>& argv, std::string outputFile,
               const std::vector<std::string>& env = {}, std::string errorFile = "");
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  bool running();
  // The wait status once the child has ended within `bound`, empty otherwise.
  std::optional<int> exitWithin(Bound bound);
  // SIGTERM, then SIGKILL when the child does not end within `bound`.
  void stop(Bound bound = std::chrono::seconds(5));
  std::string output() const { return fileText(output_); }
  std::string errors() const { return fileText(errors_.empty() ? output_ : errors_); }

 private:
  pid_t pid_ = -1;
  std::optional<int> status_;
  std::string output_;
  std::string errors_;
};

}  // namespace TestSupport
