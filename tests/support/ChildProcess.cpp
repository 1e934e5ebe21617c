#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>

extern char** environ;

namespace TestSupport {

bool eventually(const std::function<bool()>& done, Bound bound) {
  const auto end = std::chrono::steady_clock::now() + bound;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

namespace {

// This process's environment with `overrides` in place of the variables they name.
std::vector<std::string> environmentWith(const std::vector<std::string>& overrides) {
  std::vector<std::string> env = overrides;
  for (char** e = environ; *e; ++e) {
    const std::string_view entry(*e);
    const std::string_view name = entry.substr(0, entry.find('='));
    bool replaced = false;
    for (const std::string& o : overrides) replaced |= o.starts_with(std::string(name) + "=");
    if (!replaced) env.emplace_back(entry);
  }
  return env;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> p;
  for (std::string& t : texts) p.push_back(t.data());
  p.push_back(nullptr);
  return p;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv, std::string outputFile,
                           const std::vector<std::string>& env, std::string errorFile)
    : output_(std::move(outputFile)), errors_(std::move(errorFile)) {
  std::vector<std::string> args = argv;
  std::vector<std::string> envs = environmentWith(env);
  std::vector<char*> argp = pointers(args);
  std::vector<char*> envp = pointers(envs);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (errors_.empty()) {
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors_.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
  }
  const int rc = ::posix_spawnp(&pid_, argp[0], &actions, nullptr, argp.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    pid_ = -1;
    throw std::runtime_error("posix_spawnp " + argv.at(0) + ": " + std::strerror(rc));
  }
}

ChildProcess::~ChildProcess() {
  if (pid_ <= 0 || status_) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

bool ChildProcess::running() {
  int status;
  if (!status_ && ::waitpid(pid_, &status, WNOHANG) == pid_) status_ = status;
  return !status_;
}

std::optional<int> ChildProcess::exitWithin(Bound bound) {
  eventually([this] { return !running(); }, bound);
  return status_;
}

void ChildProcess::stop(Bound bound) {
  if (!running()) return;
  ::kill(pid_, SIGTERM);
  if (exitWithin(bound)) return;
  ::kill(pid_, SIGKILL);
  int status;
  if (::waitpid(pid_, &status, 0) == pid_) status_ = status;
}

}  // namespace TestSupport
