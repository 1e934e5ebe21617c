// Decoded ring lines of several processes merged into one story by time, and errno
// numbers given their text.
#include <gtest/gtest.h>

#include "tools/ctl/TraceView.h"

namespace Ctl {
namespace {

TEST(TraceViewTest, RingsMergeByTimeAndErrnoGainsItsText) {
  EXPECT_EQ(withErrnoText("send failed with errno 19, then errno 11x and errno abc"),
            "send failed with errno 19 (No such device), then errno 11x and errno abc");
  const std::vector<std::string> host = {"L0 <ring damaged>",
                                         "L0 #1 2026-11-25 10:00:00.000002 A.cpp:1 first",
                                         "L0 #2 2026-11-25 10:00:00.000009 A.cpp:2 third"};
  const std::vector<std::string> peer = {"L5 #1 2026-11-25 10:00:00.000005 B.cpp:1 second"};
  EXPECT_EQ(mergedByTime({{"host.rl", host}, {"peer.rl", peer}}),
            (std::vector<std::string>{"host.rl: L0 <ring damaged>",
                                      "host.rl: L0 #1 2026-11-25 10:00:00.000002 A.cpp:1 first",
                                      "peer.rl: L5 #1 2026-11-25 10:00:00.000005 B.cpp:1 second",
                                      "host.rl: L0 #2 2026-11-25 10:00:00.000009 A.cpp:2 third"}));
  EXPECT_EQ(mergedByTime({{"host.rl", peer}}), peer) << "one file: no name in front";
}

}  // namespace
}  // namespace Ctl
