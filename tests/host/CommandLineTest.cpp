// The command line the programs share, run as a user runs them: the host's line at
// start; a usage error is one
// line naming the program, with status 2; a word that names no command says so;
// --version answers on stdout; the tool's own options are taken after a command too;
// the state database listed, read with a leading slash, and a document for a path
// that nothing mounts refused with --strict or kept with a warning; clearing says what
// it cleared once the agent has; trace levels set at run time.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>

#include "tests/host/HostProcess.h"

namespace {

using namespace TestSupport;

TEST(CommandLine, UsageErrorsVersionAndOptionsAfterTheCommand) {
  Host host;
  ASSERT_TRUE(host.ready()) << host.child().errors();
  // The host says once what it runs and where to reach it.
  EXPECT_NE(host.child().output().find("vxrelay-host: agent " + host.name() + " ("),
            std::string::npos)
      << host.child().output();
  EXPECT_NE(host.child().output().find(", counters /dev/shm" + host.counterObject() + "\n"),
            std::string::npos)
      << host.child().output();
  ToolRun r = host.ctl({"bogus"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err.substr(0, r.err.find('\n')), "vxrelayctl: unknown command 'bogus'");
  r = host.ctl({"--version"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out.rfind("vxrelayctl ", 0), 0u) << r.out;
  r = host.ctl({"state", "get", kVtiPath, "--cell", "cell/1"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  // The state database: what is mounted, a path with a leading slash, and a document
  // for a path nothing mounts refused whole with --strict, else kept with a warning.
  r = host.ctl({"state", "list"});
  EXPECT_NE(r.out.find(std::string(kVtiPath) + "\n"), std::string::npos) << r.out;
  EXPECT_EQ(host.ctl({"state", "get", "/mlag/status"}).exitCode, 0);
  TempDir docs;
  std::ofstream(docs.file("doc.json")) << R"({"no/such/path": {"a": 1}})";
  r = host.ctl({"state", "apply", "--strict", docs.file("doc.json")});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "vxrelayctl: no/such/path: not mounted (nothing applied)\n");
  EXPECT_EQ(host.ctl({"state", "list"}).out.find("no/such/path"), std::string::npos);
  r = host.ctl({"state", "apply", docs.file("doc.json")});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.err, "vxrelayctl: warning: nothing mounts no/such/path; its state is kept\n");
  EXPECT_NE(host.ctl({"state", "list"}).out.find("no/such/path (not mounted; its state is kept)"),
            std::string::npos);
  const json listed = json::parse(host.ctl({"state", "list", "-j"}).out);
  EXPECT_EQ(listed["agent"], host.name());
  EXPECT_EQ(listed["pending"], json::array({"no/such/path"}));
  EXPECT_EQ(json::parse(host.ctl({"state", "get", "-j", "/mlag/status"}).out)["path"],
            "mlag/status");
  r = host.ctl({"clear", "varp"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out.rfind("cleared the varp counters", 0), 0u) << r.out;

  // Trace levels set at run time: the agent's level 8 line as it stops.
  EXPECT_EQ(host.ctl({"trace", "set", "OverlayRelayAgent/x"}).exitCode, 1);
  ASSERT_EQ(host.ctl({"trace", "set", "OverlayRelayAgent/0-9"}).exitCode, 0);
  host.child().stop();
  EXPECT_NE(host.child().errors().find("OverlayRelayAgent/8 OverlayRelayAgent::doCleanup()"),
            std::string::npos)
      << host.child().errors();

  TempDir dir;
  ChildProcess bad({VXRELAY_HOST, "--no-such-option"}, dir.file("out"), kChildEnv, dir.file("err"));
  const std::optional<int> status = bad.exitWithin(kExitBound);
  ASSERT_TRUE(status && WIFEXITED(*status));
  EXPECT_EQ(WEXITSTATUS(*status), 2);
  EXPECT_EQ(bad.errors().rfind("vxrelay-host: ", 0), 0u) << bad.errors();
}

}  // namespace
