// vxrelay-host: the agent host. Loads an agent library, builds the agent by its
// registered type name, gives it the embedded state database, and runs the event loop
// until SIGINT or SIGTERM. Exits non-zero with a one-line reason when the state file
// is bad, the library or type cannot be found, or the agent's mounts fail.
#include <dlfcn.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include "platform/ActivityManager.h"
#include "platform/AgentBase.h"
#include "platform/ControlServer.h"
#include "platform/EntityManager.h"
#include "platform/EventLoop.h"
#include "platform/RingLog.h"
#include "platform/TypeRegistry.h"

namespace {

void stopOnSignal(int) {
  Lum::eventLoop().stop();
}

int fail(const std::string& reason) {
  std::cerr << "vxrelay-host: " << reason << "\n";
  return 1;
}

// The agent library next to this program, where the build puts it.
std::string defaultLibrary() {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (ec ? std::filesystem::path(".") : self.parent_path()) / "libvxrelay.so";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vxrelay agent host"};
  std::string library = defaultLibrary();
  std::string typeName = "Vxlan::OverlayRelayAgent::OverlayRelayAgent";
  std::string agentName = "vxrelay";
  std::string stateFile;
  std::string control = "/run/vxrelay/vxrelay.sock";
  app.add_option("--library", library, "agent library to load")->capture_default_str();
  app.add_option("--type", typeName, "registered type name of the agent")->capture_default_str();
  app.add_option("--name", agentName, "the agent's name")->capture_default_str();
  app.add_option("--state", stateFile, "JSON state file with the switch's published state");
  app.add_option("--control", control, "Unix socket for state changes and commands")
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  Lum::EventLoop& loop = Lum::eventLoop();
  Lum::Ptr<Statehub::EntityManager> em(new Statehub::EntityManager(loop));
  if (!stateFile.empty()) {
    try {
      em->stateFileIs(stateFile);
    } catch (const std::exception& e) {
      return fail("bad state file " + stateFile + ": " + e.what());
    }
  }

  if (dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
    return fail(std::string("cannot load agent library: ") + dlerror());
  }
  const Lum::TypeInfo* type = Lum::TypeRegistry::type(typeName);
  if (!type) return fail("no agent type " + typeName + " in " + library);

  Lum::Ptr<AgentBase::CAgent> agent;
  std::string mountFailure;
  try {
    agent = Lum::ptrCast<AgentBase::CAgent>(type->construct({{"name", agentName}}));
    if (!agent) return fail(typeName + " is not an agent");
    em->mountStatusObserverIs([&](Statehub::MountStatus status, const std::string& error) {
      if (status == Statehub::mountSuccess_) return;
      mountFailure = "mounts failed: " + error;
      loop.stop();
    });
    agent->entityManagerIs(em);
    agent->doInit();
  } catch (const std::exception& e) {
    return fail(std::string("agent start failed: ") + e.what());
  }

  std::filesystem::create_directories(std::filesystem::path(control).parent_path());
  Statehub::ControlServer server(*em, control, loop);

  struct sigaction sa {};
  sa.sa_handler = stopOnSignal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);

  loop.run();
  if (!mountFailure.empty()) return fail(mountFailure);

  Lum::GenericRef(Lum::Ptr<Lum::Entity>(agent)).invoke("doCleanup");
  agent = nullptr;
  RingLog::shutdown();
  return 0;
}
