// The agent host and the operator tool as child processes, for the tests that run them
// the way a user does. Each host is killed, and its folder and counter table removed,
// when the object goes, also when the test fails.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "agent/SharedMemoryCounterStorage.h"
#include "platform/memtab/MemtabMount.h"
#include "platform/statehub/RuntimeDir.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace TestSupport {

using nlohmann::json;

// The trace ring would otherwise be a file in the working folder.
inline const std::vector<std::string> kChildEnv = {"RINGLOG_DISABLE=1"};

// Bounds on waiting for another process; a healthy one takes milliseconds.
constexpr auto kStartBound = std::chrono::seconds(5);
constexpr auto kExitBound = std::chrono::seconds(5);
constexpr auto kToolBound = std::chrono::seconds(10);
constexpr const char* kVtiPath = "interface/status/eth/vxlan";

struct ToolRun {
  int exitCode = -1;  // -1: it did not exit by itself
  std::string out;
  std::string err;
};

struct HostOptions {
  std::string stateFile = std::string(VXRELAY_EXAMPLES) + "/switch.json";
  std::string name;              // empty: a name of its own
  std::string control;           // empty: a socket in the host's own folder; "-": no --control
  std::vector<std::string> env;  // more of the host's environment ("NAME=value")
};

// A running vxrelay-host with its own name, control socket and counter table.
class Host {
 public:
  explicit Host(HostOptions o = {}) : options_(std::move(o)) {
    static int serial = 0;
    name_ = options_.name.empty()
                ? "vxr-e2e-" + std::to_string(::getpid()) + "-" + std::to_string(++serial)
                : options_.name;
    counterObject_ = LumMemtab::Mount::objectName(name_, Vxlan::kCounterTablePath);
    std::vector<std::string> args = {VXRELAY_HOST, "--name", name_, "--state", options_.stateFile};
    if (options_.control == "-") {
      control_ = Statehub::RuntimeDir::controlSocket(name_);
    } else {
      control_ = options_.control.empty() ? dir_.file("ctl.sock") : options_.control;
      args.insert(args.end(), {"--control", control_});
    }
    std::vector<std::string> env = kChildEnv;
    env.insert(env.end(), options_.env.begin(), options_.env.end());
    child_.emplace(args, dir_.file("host.out"), env, dir_.file("host.err"));
  }
  ~Host() {
    // Ended (SIGTERM, so that it removes its socket and lock; SIGKILL if it lingers)
    // before its table goes, so that it cannot make it again.
    child_->stop();
    child_.reset();
    ::shm_unlink(counterObject_.c_str());
  }

  // Whether the host answers the tool's get of the tunnel interfaces, which it can only
  // once its agent has mounted everything.
  bool ready() {
    return eventually(
        [this] {
          return ctl({"state", "get", kVtiPath}).exitCode == 0;
        },
        kStartBound);
  }

  // vxrelayctl aimed at this host.
  ToolRun ctl(std::vector<std::string> args) {
    if (options_.control != "-") args.insert(args.begin(), {"--control", control_});
    args.insert(args.begin(), {VXRELAY_CTL, "--agent", name_});
    const std::string tag = "ctl" + std::to_string(++toolRuns_);
    ChildProcess tool(args, dir_.file(tag + ".out"), kChildEnv, dir_.file(tag + ".err"));
    const std::optional<int> status = tool.exitWithin(kToolBound);
    return {status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1, tool.output(), tool.errors()};
  }

  // `vxrelayctl state get PATH`, parsed; null when it failed.
  json stateOf(const std::string& path) {
    const ToolRun r = ctl({"state", "get", path});
    if (r.exitCode != 0) return nullptr;
    return json::parse(r.out);
  }

  // `vxrelayctl state apply FILE` of a document written to a file first.
  ToolRun apply(const json& doc) {
    const std::filesystem::path file = dir_.path() / ("doc" + std::to_string(++docs_) + ".json");
    std::ofstream(file) << doc.dump();
    return ctl({"state", "apply", file.string()});
  }

  const std::string& name() const { return name_; }
  const std::string& counterObject() const { return counterObject_; }
  const std::string& control() const { return control_; }
  ChildProcess& child() { return *child_; }

 private:
  HostOptions options_;
  TempDir dir_{"vxr-e2e"};
  std::string name_;
  std::string counterObject_;
  std::string control_;
  std::optional<ChildProcess> child_;
  int toolRuns_ = 0;
  int docs_ = 0;
};

// What a host that must refuse to start wrote, after checking that it ended by itself,
// within the bound, with a failure status and one line "vxrelay-host: <reason>".
inline std::string refusalLine(ChildProcess& child) {
  const std::optional<int> status = child.exitWithin(kExitBound);
  EXPECT_TRUE(status && WIFEXITED(*status) && WEXITSTATUS(*status) != 0)
      << (status ? "wait status " + std::to_string(*status) : "still running");
  const std::string err = child.errors();
  EXPECT_EQ(err.rfind("vxrelay-host: ", 0), 0u) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
  EXPECT_TRUE(err.ends_with('\n')) << err;
  return err;
}

}  // namespace TestSupport
