#include <sys/socket.h>

#include <array>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "R2LManagerFixture.h"
#include "forwarding/PacketTrace.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/Trace.h"
#include "tests/support/VxlanFrameBuilder.h"

namespace Vxlan {
namespace {

using enum VxlanCounterId;
using TestSupport::VxlanFrameBuilder;
using Frames = std::vector<std::vector<uint8_t>>;
using Counts = std::array<uint64_t, kVxlanCounterIds>;
using Moved = std::vector<std::pair<VxlanCounterId, uint64_t>>;

// The "txraw" frame expected for the inner frame of `b` on VLAN `vlan`, port `glort`.
std::vector<uint8_t> txRaw(const VxlanFrameBuilder& b, uint16_t vlan, uint16_t glort) {
  return TestSupport::txRawFrame(b.inner, Bridging::VlanId(vlan), HwPortId(glort));
}

// The lines of `trace` that hold `word`, in order, without their date and time.
std::vector<std::string> linesWith(const std::string& trace, const std::string& word) {
  std::istringstream in(trace);
  std::vector<std::string> found;
  for (std::string line; std::getline(in, line);) {
    if (line.find(word) != std::string::npos) found.push_back(line.substr(line.find(' ', 11)));
  }
  return found;
}

// The manager with one VTI up (VTEP 10.0.0.1, UDP port 4789, VNI 5000 on VLAN 10, port
// id 0x0102): the test writes datagrams to the peer of its remote socket, runs the loop
// and reads what the frame loop wrote from the peer of its local socket.
class Remote2LocalFrameTest : public R2LManagerFixture {
 protected:
  void SetUp() override {
    txrawIs(true);
    hw_->vxlanHwStatusIs(kVti)->portIdIs(HwPortId(0x0102));
    vti(true)->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(5000));
    start();
    ASSERT_TRUE(remoteWatched());
    sm()->batchModeIs(false);  // the one-frame loop; batch mode has a case of its own
  }
  void send(const std::vector<uint8_t>& f) {
    ASSERT_EQ(::send(sys_.peer(sm()->remoteSock()), f.data(), f.size(), 0), ssize_t(f.size()));
  }
  static void run() { Lum::eventLoop().runOnce(0); }
  Frames written() const {
    Frames frames;
    uint8_t buf[10000];
    for (ssize_t n; (n = ::recv(sys_.peer(sm()->localSock()), buf, sizeof buf, MSG_DONTWAIT)) >= 0;)
      frames.emplace_back(buf, buf + n);
    return frames;
  }
  bool remoteDrained() const {
    uint8_t b;
    return ::recv(sm()->remoteSock(), &b, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
  }
  Counts counts() const {
    Counts c{};
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) c[i] = count(VxlanCounterId(i));
    return c;
  }
  // The counters that moved since `before`, with how far.
  Moved moved(const Counts& before) const {
    Moved m;
    const Counts now = counts();
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) {
      if (now[i] != before[i]) m.emplace_back(VxlanCounterId(i), now[i] - before[i]);
    }
    return m;
  }
};

// Guards each drop with the counters it moves (after the received ones), and nothing
// written: the length checks at their boundaries (at the limit a drop, one byte more
// passes on); the filters, the own source winning over a matching destination; clear
// flags, a bad-flags drop without a lookup (the VNI is unknown too); an unknown VNI, an
// unknown-VLAN drop. And the whole path: exact "txraw" bytes and the four counters of
// a written frame, whatever tag or IP options the outer frame has and also to the flood
// group; without a hardware entry (portId 0xFFFF) the frame goes out with glort 0xFFFF.
// The packet trace of each frame, run first, moves nothing and names the counter the
// loop then moves (the first of each case's), and its bytes are those the loop writes.
TEST_F(Remote2LocalFrameTest, WritesTheTxRawFormOrDropsWithItsCounters) {
  bum_->bumMcastGrpIs(Bridging::VlanId(10), ip("239.1.1.1"));
  using F = std::vector<uint8_t>;
  const auto with = [](auto change) {
    VxlanFrameBuilder b;
    change(b);
    return b.build();
  };
  const F full = VxlanFrameBuilder().build();
  const F fullTagged = with([](auto& b) { b.tagged = true; });
  const size_t emptyAt = VxlanFrameBuilder().vxlanOffset() + 22;
  const std::vector<VxlanCounterId> filtered = {r2lFilteredFrames, r2lFilteredBytes};
  const std::pair<F, std::vector<VxlanCounterId>> cases[] = {
      {F(full.begin(), full.begin() + 14), {r2lBadLength}},
      {F(full.begin(), full.begin() + 42), {r2lBadLength}},
      {F(fullTagged.begin(), fullTagged.begin() + 46), {r2lBadLength}},
      {F(full.begin(), full.begin() + emptyAt), {r2lBadLength}},
      {with([](auto& b) { b.ethType = 0x0806; }), filtered},
      {with([](auto& b) { b.saddr = 0x0a000001; }), filtered},  // our own VTEP, to us
      {with([](auto& b) { b.daddr = 0x0a000009; }), filtered},
      {with([](auto& b) { b.dport = 4790; }), filtered},
      {with([](auto& b) { b.vxlanFlags = 0, b.vni = 77; }), {r2lBadFlags}},
      {with([](auto& b) { b.vni = 77; }), {r2lUnknownVlan}},
  };
  const auto traced = [this](const F& frame, const Counts& before) {
    const nlohmann::json a = PacketTrace::remoteToLocal(*sm(), frame);
    EXPECT_EQ(counts(), before);
    EXPECT_TRUE(written().empty());
    return a;
  };
  for (const auto& [frame, drops] : cases) {
    const Counts before = counts();
    EXPECT_EQ(traced(frame, before)["counter"], vxlanCounterName(uint16_t(drops[0])));
    send(frame);
    run();
    Moved expected{{r2lRxBytes, frame.size()}, {r2lRxFrames, 1}};
    for (VxlanCounterId id : drops) {
      expected.emplace_back(id, id == r2lFilteredBytes ? frame.size() : 1);
    }
    EXPECT_EQ(moved(before), expected) << frame.size();
  }
  EXPECT_TRUE(written().empty());
  const VxlanFrameBuilder b;
  const F tagged = with([](auto& x) { x.tagged = true, x.ipHdrWords = 6; });
  const F toGroup = with([](auto& x) { x.daddr = 0xef010101; });
  const Counts before = counts();
  const nlohmann::json a = traced(full, before);
  EXPECT_EQ(a["counter"], "r2lTxFrames");
  for (const F& f : {full, tagged, toGroup}) send(f);
  run();
  EXPECT_EQ(written(), Frames(3, txRaw(b, 10, 0x0102)));
  EXPECT_EQ(a["output"][0]["hex"], TestSupport::hexOf(txRaw(b, 10, 0x0102)));
  EXPECT_EQ(moved(before), (Moved{{r2lRxBytes, 2 * full.size() + tagged.size()},
                                  {r2lRxFrames, 3},
                                  {r2lTxBytes, 3 * (b.inner.size() + 8)},
                                  {r2lTxFrames, 3}}));
  send(F(full.begin(), full.begin() + emptyAt + 1));
  run();
  EXPECT_EQ(written().size(), 1u);
  hw_->vxlanHwStatusDel(kVti);
  send(full);
  run();
  EXPECT_EQ(written(), Frames{txRaw(b, 10, 0xffff)});
}

// Time that moves on by `step` each time it is read.
struct SteppingTime : Lum::TimeSource {
  double step;
  mutable double t = 1000.0;
  explicit SteppingTime(double s) : step(s) {}
  double now() const override { return t += step; }
};

// Guards the failed sends: ENETDOWN, the one recovery, reopens the local socket (a
// failed index lookup and a failed bind each counted as a socket error, the socket
// kept) and the frame goes out on the new one; any other error ends the run with a
// socket error and leaves the following frames in the socket.
TEST_F(Remote2LocalFrameTest, NetDownReopensTheLocalSocketOtherErrorsEndTheRun) {
  sys_.failWriteOnce = ENETDOWN;
  sys_.devices.erase("txraw");
  sys_.failBind = EINVAL;
  sys_.opened = 0;
  Counts before = counts();
  VxlanFrameBuilder b;
  send(b.build());
  run();
  EXPECT_EQ(sys_.opened, 1);
  EXPECT_EQ(sys_.openCount(), 2u) << "the old local socket must be closed";
  EXPECT_EQ(written(), Frames{txRaw(b, 10, 0x0102)});
  EXPECT_EQ(moved(before), (Moved{{r2lRxBytes, b.build().size()},
                                  {r2lRxFrames, 1},
                                  {r2lTxBytes, b.inner.size() + 8},
                                  {r2lTxFrames, 1},
                                  {r2lSocketErrors, 2}}));

  sys_.failWriteOnce = EMSGSIZE;
  send(b.build());
  send(b.build());
  before = counts();
  run();
  EXPECT_EQ(moved(before),
            (Moved{{r2lRxBytes, b.build().size()}, {r2lRxFrames, 1}, {r2lSocketErrors, 1}}));
  EXPECT_FALSE(remoteDrained());
  run();
  EXPECT_EQ(written().size(), 1u);
}

// Batch mode keeps the per-frame semantics: the same frames in the same order and the
// same counters and write traces as one at a time; the budget ends a batch between
// frames and the rest follows in order without a new datagram; a short batch write is
// accounted frame by frame.
TEST_F(Remote2LocalFrameTest, BatchModeKeepsPerFrameSemantics) {
  std::vector<VxlanFrameBuilder> mix(6);
  mix[1].inner.resize(5);      // too short behind the VXLAN header
  mix[2].vni = 99;             // no VLAN
  mix[3].daddr = 0x0a000009;   // not for this VTEP
  mix[4].tagged = true;        // written like the first
  mix[5].inner.back() = 0x77;  // told apart from the first
  const auto runAll = [&] {
    const Counts before = counts();
    std::ostringstream trace;
    Lum::coverageStreamIs(&trace);
    for (const auto& b : mix) send(b.build());
    run();
    Lum::coverageStreamIs(nullptr);
    return std::tuple{written(), moved(before), linesWith(trace.str(), ") wrote ")};
  };
  const auto single = runAll();
  sm()->batchModeIs(true);
  const auto batched = runAll();
  EXPECT_EQ(batched, single);
  EXPECT_EQ(std::get<0>(batched).size(), 3u);
  EXPECT_EQ(std::get<2>(batched).size(), 3u);

  {
    SteppingTime time(0.06);
    Lum::ScopedTimeSource scope(time);
    Frames expected;
    for (int i = 0; i < 3; ++i) {
      VxlanFrameBuilder b;
      b.inner.back() = static_cast<uint8_t>(i);
      send(b.build());
      expected.push_back(txRaw(b, 10, 0x0102));
    }
    const Counts before = counts();
    run();
    EXPECT_TRUE(remoteDrained());
    EXPECT_EQ(written(), expected) << "the frames left in the batch follow, in order";
    EXPECT_EQ(moved(before)[4], (std::pair{r2lTimeBudgetExpired, uint64_t{1}}));
  }

  sys_.shortSendOnce = 1;
  sys_.failSendAfterShort = EMSGSIZE;
  const Counts before = counts();
  for (int i = 0; i < 3; ++i) send(mix[0].build());
  run();
  EXPECT_EQ(written().size(), 1u);
  EXPECT_EQ(moved(before), (Moved{{r2lRxBytes, 3 * mix[0].build().size()},
                                  {r2lRxFrames, 3},
                                  {r2lTxBytes, mix[0].inner.size() + 8},
                                  {r2lTxFrames, 1},
                                  {r2lSocketErrors, 2}}));
}

}  // namespace
}  // namespace Vxlan
