// What `cmake --install` puts in place, used as an operator would: the installed host
// finds the installed agent library (not the build's) and starts the agent; the
// service unit runs that host in its runtime folder; the man pages (with examples) and
// the tool's completion are there.
#include <gtest/gtest.h>

#include "tests/host/HostProcess.h"
#include "tests/support/Shell.h"

namespace {

using namespace TestSupport;

TEST(Install, TheInstalledHostRunsTheInstalledAgent) {
  TempDir prefix;
  const auto [rc, out] = run(std::string(CMAKE_COMMAND) + " --install " + VXRELAY_BUILD_DIR +
                             " --prefix " + prefix.path().string() + " 2>&1");
  ASSERT_EQ(rc, 0) << out;
  const std::string root = prefix.path().string();
  const std::string unit = fileText(root + "/lib/systemd/system/vxrelay.service");
  EXPECT_NE(unit.find("ExecStart=" + root + "/bin/vxrelay-host "), std::string::npos) << unit;
  EXPECT_NE(unit.find("RuntimeDirectory=vxrelay\n"), std::string::npos) << unit;
  EXPECT_NE(fileText(root + "/share/bash-completion/completions/vxrelayctl").find("complete -F"),
            std::string::npos);
  for (const char* program : {"vxrelay-host", "vxrelayctl", "vxrelay-fpemu"}) {
    EXPECT_NE(fileText(root + "/share/man/man1/" + program + ".1").find(".SH EXAMPLES"),
              std::string::npos)
        << program;
  }

  const std::string name = "vxr-install-" + std::to_string(::getpid());
  ChildProcess host(
      {root + "/bin/vxrelay-host", "--name", name, "--state",
       std::string(VXRELAY_EXAMPLES) + "/switch.json", "--control", prefix.file("ctl.sock")},
      prefix.file("host.out"), kChildEnv, prefix.file("host.err"));
  const std::string started = "from " + root + "/lib/vxrelay/libvxrelay.so) running";
  EXPECT_TRUE(
      eventually([&] { return host.output().find(started) != std::string::npos; }, kStartBound))
      << host.output() << host.errors();
  host.stop();
  ::shm_unlink(LumMemtab::Mount::objectName(name, Vxlan::kCounterTablePath).c_str());
}

}  // namespace
