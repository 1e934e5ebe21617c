#include "platform/ringdecode/RingLogDecoder.h"
#include "platform/trace/RingLog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/Exception.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

// Each test gets its own RINGLOGDIR; TearDown closes the ring file, and the folder goes
// with everything in it, whether the test passed or not.
class RingLogTest : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("RINGLOGDIR", dir_.c_str(), 1); }
  void TearDown() override {
    RingLog::shutdown();
    ::unsetenv("RINGLOGDIR");
  }

  // Levels listed get a ring of `kib` KiB, the others none.
  static std::vector<uint32_t> sizes(std::initializer_list<int> levels, uint32_t kib = 4) {
    std::vector<uint32_t> s(RingLog::kLevels, 0);
    for (int level : levels) s[static_cast<size_t>(level)] = kib;
    return s;
  }

  TestSupport::TempDir dirGuard_{"vxr-ringlog"};
  std::string dir_ = dirGuard_.path().string();
};

int sideEffects = 0;
int bump() {
  return ++sideEffects;
}

// One site, so that tests can run the same registered site in two files.
void logFrame(int n) {
  RINGLOG(4, "frame %d", n);
}

// Guards file naming as the agent names its file: "%d" is the pid, a relative name
// goes into RINGLOGDIR, and the file stays after shutdown.
TEST_F(RingLogTest, InitializeNamesTheFile) {
  const auto s = sizes({0, 9});
  RingLog::TraceFile* tf = RingLog::initialize("rl-%d.rl", s.data());
  ASSERT_EQ(RingLog::traceFile(), tf);
  const std::string expected = dir_ + "/rl-" + std::to_string(::getpid()) + ".rl";
  EXPECT_EQ(tf->path(), expected);
  EXPECT_TRUE(tf->ring(0) && !tf->ring(1));
  RingLog::shutdown();
  EXPECT_TRUE(fs::exists(expected));

  const auto tooBig = sizes({3}, RingLog::kMaxRingKiB + 1);
  EXPECT_THROW(RingLog::initialize("big.rl", tooBig.data()), Lum::RangeException);
}

// Guards a folder others may write: a link planted where the ring file goes made a
// root host truncate and overwrite the file it pointed to. A link, and a file of
// another user, are refused and left as they are.
TEST_F(RingLogTest, RefusesLinksAndFilesOfOthers) {
  const auto s = sizes({0});
  const std::string victim = dir_ + "/victim", planted = dir_ + "/planted.rl";
  std::ofstream(victim) << "precious";
  fs::create_symlink(victim, planted);
  EXPECT_THROW(RingLog::initialize("planted.rl", s.data()), Lum::ErrnoException);
  EXPECT_EQ(RingLog::traceFile(), nullptr);
  std::ifstream in(victim);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "precious");

  if (::geteuid() != 0) return;  // a file of another user needs root to make
  const std::string foreign = dir_ + "/foreign.rl";
  std::ofstream(foreign) << "theirs";
  ASSERT_EQ(::chown(foreign.c_str(), 65534, 65534), 0);
  EXPECT_THROW(RingLog::initialize("foreign.rl", s.data()), Lum::ErrnoException);
  EXPECT_EQ(fs::file_size(foreign), 6u);
}

// Guards the "off" promise (no file open means no registration, no evaluation of the
// arguments and no file), and recording and decoding: argument types, per-level order,
// string limits, descriptors of sites registered under an earlier file, and sites of a
// level without a ring.
TEST_F(RingLogTest, NothingWithoutFileThenRoundTripPerLevelInOrder) {
  ASSERT_EQ(RingLog::traceFile(), nullptr);
  const size_t registered = RingLog::msgDescCount();
  sideEffects = 0;
  RINGLOG(1, "never %d", bump());
  EXPECT_EQ(sideEffects, 0);
  EXPECT_EQ(RingLog::msgDescCount(), registered);
  EXPECT_TRUE(fs::is_empty(dir_));

  const auto s = sizes({3, 4, 5});
  RingLog::initialize("first.rl", s.data());
  logFrame(1);  // registers the site under the first file
  RingLog::shutdown();

  RingLog::initialize("rt.rl", s.data());
  RINGLOG(6, "no ring for %d", bump());  // level 6 has no ring
  EXPECT_EQ(sideEffects, 0);
  RINGLOG(3, "u %u x %x c %c big %llu %s", 7u, -1, 'q', 18446744073709551615ull, std::string("s"));
  RINGLOG(5, "rate %.2f err %ld", 1.5, -7L);
  logFrame(2);
  RINGLOG(3, "sv %s|%5s|%-4d|", std::string_view("view"), "ab", -3);
  const std::string longText(400, 'z');
  RINGLOG(5, "long %s", longText);
  RINGLOG(5, "many %s %s %s %s %s", longText, longText, longText, longText, longText);

  const auto lines = RingLog::decodeFile(RingLog::traceFile()->path());
  const std::vector<std::pair<std::string, std::string>> want = {
      {"L3 #0 ", " u 7 x ffffffff c q big 18446744073709551615 s"},
      {"L3 #1 ", " sv view|   ab|-3  |"},
      {"L4 #0 ", " frame 2"},
      {"L5 #0 ", " rate 1.50 err -7"},
      {"L5 #1 ", " long " + std::string(RingLog::kMaxStringBytes, 'z')},
      {"L5 #2 ", " <truncated>"}};
  ASSERT_EQ(lines.size(), want.size());
  EXPECT_NE(lines[0].find(" RingLogTest.cpp:"), std::string::npos) << lines[0];
  for (size_t i = 0; i < want.size(); ++i) {
    EXPECT_TRUE(lines[i].starts_with(want[i].first) && lines[i].ends_with(want[i].second))
        << lines[i];
  }
}

// Message i of the wrap test: its text varies in size; every 250th is a record so big
// that it has a 1 KiB block nearly to itself.
std::string wrapPad(int i, int part) {
  if (i % 250 == 249) return std::string(240, static_cast<char>('a' + part));
  return part == 0 ? std::string(static_cast<size_t>(i * 37 % 150), 'x') : std::string();
}

// Guards the wrap logic: after any number of records of varying size, some leaving the
// rest of a block unused, the decoder gets only whole records, consecutive and ending
// with the newest, old ones are gone, and no more than a block is given up at a time.
TEST_F(RingLogTest, WrapKeepsNewestIntactRecordsInOrder) {
  const auto s = sizes({2}, 8);  // eight blocks of 1 KiB
  RingLog::TraceFile* tf = RingLog::initialize("wrap.rl", s.data());
  for (int i = 0; i < 1000; ++i) {
    RINGLOG(2, "msg %d %s%s%s%s", i, wrapPad(i, 0), wrapPad(i, 1), wrapPad(i, 2), wrapPad(i, 3));
    if (i % 97 != 0 && i % 250 != 249 && i != 999) continue;
    const auto lines = RingLog::decodeFile(tf->path());
    ASSERT_FALSE(lines.empty());
    if (i > 100) {
      // Six whole blocks at least (all but the one forgotten last and the one being
      // filled), one of them perhaps the big record's, the others four records or more.
      ASSERT_GE(lines.size(), 21u);
    }
    for (size_t k = 0; k < lines.size(); ++k) {
      const int n = i - static_cast<int>(lines.size() - 1 - k);
      const std::string want = " msg " + std::to_string(n) + " " + wrapPad(n, 0) + wrapPad(n, 1) +
                               wrapPad(n, 2) + wrapPad(n, 3);
      ASSERT_TRUE(lines[k].starts_with("L2 #" + std::to_string(n) + " ")) << lines[k];
      ASSERT_TRUE(lines[k].ends_with(want)) << i << ": " << lines[k];
    }
  }
  EXPECT_GT(tf->ring(2)->header().wrapCount, 1u);
}

// Guards the decoder against what it cannot trust: arguments that do not match the
// format, a damaged record and a file that is no ring log at all.
TEST_F(RingLogTest, DecoderMarksMismatchAndDamage) {
  const auto s = sizes({7});
  RingLog::TraceFile* tf = RingLog::initialize("bad.rl", s.data());
  static const RingLog::MsgDesc desc(__FILE__, __LINE__, "%d and %s then %f");
  RingLog::RingBuf& ring = *tf->ring(7);
  ring.startMsg(desc.id());
  ring.put("text");
  ring.put(5);
  ring.endMsg();
  ring.record(desc.id(), 1, "two", 3.0, 4u);
  ring.record(desc.id(), 1, "ok", 2.5);

  auto lines = RingLog::decodeFile(tf->path());
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_TRUE(lines[0].ends_with(" <?%d:str> and <?%s:i32> then <?%f:missing>")) << lines[0];
  EXPECT_TRUE(lines[1].ends_with(" 1 and two then 3.000000 <1 more args>")) << lines[1];
  EXPECT_TRUE(lines[2].ends_with(" 1 and ok then 2.500000")) << lines[2];

  // Break the length of the second record in the shared mapping, where the ring's bytes
  // follow its header: the first still decodes, then a marker.
  const uint32_t firstBytes = ring.header().head / 3;  // three records of one size
  const uint32_t badLength = 12;
  std::memcpy(
      reinterpret_cast<unsigned char*>(const_cast<RingLog::RingHeader*>(&ring.header()) + 1) +
          firstBytes,
      &badLength, sizeof badLength);
  lines = RingLog::decodeFile(tf->path());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[1].starts_with("L7 <damaged ring")) << lines[1];

  const std::string notRing = dir_ + "/not.rl";
  std::ofstream(notRing) << std::string(sizeof(RingLog::FileHeader) + 64, 'x');  // no magic
  EXPECT_THROW(RingLog::decodeFile(notRing), Lum::Exception);
}

}  // namespace
