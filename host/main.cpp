// vxrelay-host: the agent host. Loads an agent library, builds the agent by its
// registered type name, gives it the embedded state database, and runs the event loop
// until SIGINT or SIGTERM, then exits 0. Exits non-zero with one line on stderr,
// "vxrelay-host: <reason>" (or to syslog with --log syslog), when the state file is bad, the
// control socket cannot be opened, the library or type cannot be found, or the agent's mounts or
// its start fail. Warns, one line each, of state-file paths that nothing mounts.
#include <dlfcn.h>
#include <grp.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include "platform/core/TypeRegistry.h"
#include "platform/loop/ActivityManager.h"
#include "platform/loop/EventLoop.h"
#include "platform/memtab/MemtabMount.h"
#include "platform/statehub/AgentBase.h"
#include "platform/statehub/ControlServer.h"
#include "platform/statehub/EntityManager.h"
#include "platform/statehub/RuntimeDir.h"
#include "platform/trace/Log.h"
#include "platform/trace/RingLog.h"
#include "tools/cli/CliParse.h"

namespace {

void stopOnSignal(int) {
  Lum::eventLoop().stop();
}

int fail(const std::string& reason) {
  Lum::logLine(Lum::LogSeverity::error, reason);
  return 1;
}

// The agent library next to this program, where the build puts it.
// Where the agent keeps its counter tables (the agent's mount path, part of the tool's
// and the operators' vocabulary).
constexpr const char* kCounterTable = "vxlan/counter";

// The agent library beside the program (the build's layout), else where `cmake
// --install` puts it (lib/vxrelay/ beside bin/).
std::string defaultLibrary() {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  const std::filesystem::path dir = ec ? std::filesystem::path(".") : self.parent_path();
  for (const std::filesystem::path& candidate :
       {dir / "libvxrelay.so", dir / ".." / "lib" / "vxrelay" / "libvxrelay.so",
        dir / ".." / "lib64" / "vxrelay" / "libvxrelay.so"}) {
    if (std::filesystem::exists(candidate, ec)) return candidate.lexically_normal().string();
  }
  return (dir / "libvxrelay.so").string();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vxrelay agent host"};
  app.footer(
      "Examples:\n"
      "  vxrelay-host --state examples/switch.json           agent vxrelay, socket in "
      "/run/vxrelay\n"
      "  vxrelay-host --name sw1 --state sw1.json --control-group netops");
  std::string library = defaultLibrary();
  std::string typeName = "Vxlan::OverlayRelayAgent::OverlayRelayAgent";
  std::string agentName = "vxrelay";
  std::string stateFile;
  std::string control;
  std::string controlGroup;
  app.add_option("--library", library, "agent library to load")->capture_default_str();
  app.add_option("--type", typeName, "registered type name of the agent")->capture_default_str();
  app.add_option("--name", agentName, "the agent's name")->capture_default_str();
  app.add_option("--state", stateFile, "JSON state file with the switch's published state");
  app.add_option(
      "--control", control,
      "Unix socket for state changes and commands (default: <runtime folder>/<name>.sock)");
  app.add_option("--control-group", controlGroup,
                 "a group whose members may use the control socket besides this user and root");
  std::string logTo = "stderr";
  app.add_option("--log", logTo, "where the host's lines go: stderr, or syslog (the journal)")
      ->check(CLI::IsMember({"stderr", "syslog"}))
      ->capture_default_str();
  if (const std::optional<int> done = Cli::parse(app, "vxrelay-host", argc, argv)) return *done;
  // The host's and the agent's lines for the operator ("vxrelay-host: warning: Vxlan1:
  // waiting for device vtep0"), under this program's name.
  Lum::logProgramIs("vxrelay-host");
  if (logTo == "syslog") Lum::logToSyslogIs();
  if (control.empty()) control = Statehub::RuntimeDir::controlSocket(agentName);

  // One agent name, one running host: before anything of the agent's is touched.
  std::optional<Statehub::AgentLock> lock;
  Statehub::ControlServer::Access access;
  try {
    if (!controlGroup.empty()) {
      const group* g = ::getgrnam(controlGroup.c_str());
      if (!g) return fail("no group " + controlGroup);
      access.group = g->gr_gid;
    }
    Statehub::RuntimeDir::ensure(Statehub::RuntimeDir::defaultPath());
    lock.emplace(Statehub::RuntimeDir::defaultPath(), agentName);
  } catch (const std::exception& e) {
    return fail(e.what());
  }

  Lum::EventLoop& loop = Lum::eventLoop();
  Lum::Ptr<Statehub::EntityManager> em(new Statehub::EntityManager(loop));
  if (!stateFile.empty()) {
    try {
      em->stateFileIs(stateFile);
    } catch (const std::exception& e) {
      return fail("bad state file " + stateFile + ": " + e.what());
    }
  }

  // Before the agent is built, so that a second host on the same socket stops here
  // without having touched anything of the agent's.
  std::optional<Statehub::ControlServer> server;
  try {
    const std::string folder = std::filesystem::path(control).parent_path().string();
    Statehub::RuntimeDir::ensure(folder.empty() ? "." : folder, access.group);
    server.emplace(*em, control, loop, access);
  } catch (const std::exception& e) {
    return fail(std::string("cannot open the control socket: ") + e.what());
  }

  if (dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
    return fail(std::string("cannot load agent library: ") + dlerror());
  }
  const Lum::TypeInfo* type = Lum::TypeRegistry::type(typeName);
  if (!type) return fail("no agent type " + typeName + " in " + library);

  // The agent is built in two steps: doInit() here, doMountsComplete() in a reaction of
  // the loop. A failure in that reaction leaves no agent worth running, so until it has
  // ended the loop's exception reports end the host with one line giving the first
  // reason; a failed mount is that reason, not the agent's exception that follows it.
  std::string startFailure;
  loop.exceptionReporterIs([&](std::string_view, std::string_view text) {
    if (startFailure.empty()) startFailure = "agent start failed: " + std::string(text);
    loop.stop();
  });
  Lum::Ptr<AgentBase::CAgent> agent;
  try {
    agent = Lum::ptrCast<AgentBase::CAgent>(type->construct({{"name", agentName}}));
    if (!agent) return fail(typeName + " is not an agent");
    em->mountStatusObserverIs([&](Statehub::MountStatus status, const std::string& error) {
      if (status != Statehub::mountSuccess_) {
        if (startFailure.empty()) startFailure = "mounts failed: " + error;
        loop.stop();
        return;
      }
      // A path that no mount took is most likely misspelt in the state file.
      for (const std::string& path : em->pendingStatePaths()) {
        Lum::logLine(Lum::LogSeverity::warning, "nothing mounts " + path + ", its state is kept");
      }
      // One line that says what runs and where to reach it.
      Lum::logLine(Lum::LogSeverity::info,
                   "agent " + agentName + " (" + typeName + " from " + library +
                       ") running; control socket " + control + ", counters /dev/shm" +
                       LumMemtab::Mount::objectName(agentName, kCounterTable));
      // Work deferred now runs after the agent's doMountsComplete() has returned: from
      // then on an exception is reported as usual and the agent goes on.
      loop.defer([&loop] { loop.exceptionReporterIs(nullptr); }, "vxrelay-host");
    });
    agent->entityManagerIs(em);
    agent->doInit();
  } catch (const std::exception& e) {
    return fail(std::string("agent start failed: ") + e.what());
  }

  struct sigaction sa {};
  sa.sa_handler = stopOnSignal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);

  loop.run();
  if (!startFailure.empty()) return fail(startFailure);

  Lum::GenericRef(Lum::Ptr<Lum::Entity>(agent)).invoke("doCleanup");
  agent = nullptr;
  RingLog::shutdown();
  return 0;
}
