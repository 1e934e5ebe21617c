#include "platform/trace/Trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "platform/core/Exception.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace Lum {
namespace {

// Every test leaves the process-wide trace state as it found it: nothing enabled, no
// coverage stream, lines to stderr, and its output folder removed.
class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override { traceAllDisabled(); }
  void TearDown() override {
    coverageStreamIs(nullptr);
    traceOutputFileIs(nullptr);
    traceAllDisabled();
  }
  std::string output() const { return TestSupport::fileText(outPath_); }

  TestSupport::TempDir dir_{"vxr-trace"};
  std::string outPath_ = dir_.file("trace.out");
};

int sideEffects = 0;
int bump() {
  return ++sideEffects;
}

// Guards the enabling syntax: inclusive ranges, continued level lists, a bare name
// meaning all levels, names remembered for facilities created later, and "*".
TEST_F(TraceTest, SpecEnablesLevelsOfPresentAndLaterFacilities) {
  TraceFacility& a = traceFacility("TtSpecA");
  traceSpecIs("TtSpecA/1-3,7, TtSpecB ,TtSpecLater/8");
  EXPECT_EQ(a.levelMask(), 0b10001110u);
  EXPECT_EQ(traceFacility("TtSpecB").levelMask(), TraceFacility::kAllLevels);
  TraceFacility& later = traceFacility("TtSpecLater");
  EXPECT_EQ(later.levelMask(), 1u << 8);

  // A second string replaces the levels of the names it lists and leaves the others.
  traceSpecIs("TtSpecLater/0");
  EXPECT_EQ(later.levelMask(), 1u);
  EXPECT_EQ(a.levelMask(), 0b10001110u);

  traceSpecIs("*/9");
  EXPECT_TRUE(traceFacility("TtSpecNew").enabled(9));
  EXPECT_EQ(a.levelMask(), 0b1010001110u);

  traceAllDisabled();
  EXPECT_EQ(traceFacility("TtSpecOther").levelMask(), 0u) << "\"*\" outlived traceAllDisabled";
}

// Guards against a malformed string half applied or accepted silently.
TEST_F(TraceTest, MalformedSpecThrowsAndChangesNothing) {
  TraceFacility& f = traceFacility("TtBad");
  traceSpecIs("TtBad/2");
  for (const char* bad : {"TtBadOther,TtBad/10", "TtBadOther,TtBad/5-3", "3,TtBadOther",
                          "TtBadOther,TtBad/", "TtBadOther,/4", "TtBadOther,TtBad/x"}) {
    EXPECT_THROW(traceSpecIs(bad), RangeException) << bad;
    EXPECT_EQ(f.levelMask(), 0b100u) << bad;
    EXPECT_EQ(traceFacility("TtBadOther").levelMask(), 0u) << bad;
  }
}

// Guards the cost promise: with the level off the stream arguments are not evaluated
// and nothing is written, unless the coverage switch is on, which sends the lines of
// disabled levels to the coverage stream (and only there); with the level on they are
// evaluated once and the line reaches the output.
TEST_F(TraceTest, MacroEvaluatesArgumentsOnlyWhenEnabledOrCovered) {
  TraceFacility& f = traceFacility("TtMacro");
  traceOutputFileIs(outPath_.c_str());
  sideEffects = 0;
  LUM_TRACE(f, 3, "read " << bump() << " bytes");
  EXPECT_EQ(sideEffects, 0);
  std::ostringstream cover;
  coverageStreamIs(&cover);
  LUM_TRACE(f, 7, "handled " << 3 << " frames");
  LUM_TRACE(f, 7, LUM_TRACE_FUNCTION << "() named");
  coverageStreamIs(nullptr);
  LUM_TRACE(f, 7, "after coverage");
  EXPECT_NE(cover.str().find(" TtMacro/7 handled 3 frames"), std::string::npos) << cover.str();
  EXPECT_NE(cover.str().find(" TestBody() named"), std::string::npos) << cover.str();
  EXPECT_EQ(cover.str().find("after coverage"), std::string::npos) << cover.str();
  EXPECT_EQ(output(), "");

  traceSpecIs("TtMacro/3");
  EXPECT_TRUE(f.wanted(2, 3) && f.wanted(3, 9) && !f.wanted(4, 9) && !f.wanted(0, 2));
  EXPECT_FALSE(f.wanted(-1, 12)) << "out of range is off";
  LUM_TRACE(f, 3, "read " << bump() << " bytes");
  LUM_TRACE(f, 4, "other level " << bump());
  EXPECT_EQ(sideEffects, 1);
  const std::string line = output();
  EXPECT_NE(line.find(" TtMacro/3 read 1 bytes"), std::string::npos) << line;
  EXPECT_NE(line.find("[TraceTest.cpp:"), std::string::npos) << line;
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
}

}  // namespace
}  // namespace Lum
