// Fuzz target of Vxlan::PacketTrace::answer, the "packet" query of the control socket:
// its arguments and frame come from whoever can reach the socket. Both forwarding
// managers are built once over one VTI "Vxlan1" that is up: VTEP 10.0.0.1, UDP port
// 4789, VNI 5000 on VLAN 10 and 5020 on VLAN 20 (port id 0x0102), peer link 7, the
// default flood list of VLAN 10 holding 10.0.0.2 and our own 10.0.0.1 (VLAN 20 has
// none), and 10.0.10.1 an address of Vlan10. Every socket is one end of a socket pair
// and every send is caught.
//
// The input: byte 0 picks "direction" (bits 0-1: absent, r2l, l2r, auto), whether
// "vlan" (bit 2, the next two bytes) and "port" (bit 3, the next byte) are given, how
// the hex is spoilt (bits 4-5: not, odd length, a non-digit, upper case) and an
// unknown "vti" (bits 6-7 both set); the rest is the frame.
//
// A refusal (Lum::Exception) is fine. Otherwise the trace moved no counter and sent
// nothing, answers in the direction asked, and its verdict is "forwarded" or
// "dropped"; a forwarded frame has one output per destination and at least one (the
// list always holds a VTEP not our own), each output's length is its bytes' length,
// and a dropped frame has no output and a reason in words.
#include <array>
#include <cctype>
#include <cstdlib>
#include <string>

#include "forwarding/PacketTrace.h"
#include "platform/core/Exception.h"
#include "tests/support/SocketPairs.h"

namespace {

using namespace Vxlan;
using nlohmann::json;

// Options and requests that a socket pair does not know succeed; a send is counted.
struct CaughtSends : TestSupport::SocketPairs {
  CaughtSends() { devices = {{"lo1", 3}, {"txraw", 4}, {"vxlan", 5}}; }
  int setsockopt(int, int, int, const void*, socklen_t) override { return 0; }
  int ioctl(int fd, unsigned long request, void* arg) override {
    return request == SIOCGIFINDEX ? SocketPairs::ioctl(fd, request, arg) : 0;
  }
  Lum::SysResult write(int, const void*, size_t len) override { return ++sent, Done(len); }
  ssize_t send(int, const void*, size_t len, int) override { return ++sent, ssize_t(len); }
  Lum::SysResult sendto(int, const void*, size_t len, int, const sockaddr*, socklen_t) override {
    return ++sent, Done(len);
  }
  ssize_t sendmsg(int, const msghdr*, int) override { return ++sent, 0; }
  int sendmmsg(int, mmsghdr*, unsigned int count, int) override { return ++sent, int(count); }
  static Lum::SysResult Done(size_t len) { return {static_cast<ssize_t>(len), 0}; }
  int sent = 0;
};

struct Fixture {
  Fixture() {
    const Wire::IntfId id("Vxlan1");
    Lum::Ptr<VtiStatus> vti = dir->vtiStatusIs(id);
    vti->srcIpIntfIs(Wire::IntfId("Loopback1"));
    vti->srcIntfKernelNameIs(Lum::String8("lo1"));
    vti->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
    vti->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(5000));
    vti->vlanToVniMapIs(Bridging::VlanId(20), VniOrNone(5020));  // and no flood list
    vti->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    kni->interfaceIs(KernelNetworkInfo::InterfaceState{
        Wire::IfIndex(4), Lum::String8("txraw"), IFF_UP, 6, {}, 1500});
    hw->vxlanHwStatusIs(id)->portIdIs(HwPortId(0x0102));
    const Lum::Ptr<BumVtepList> list =
        hw->bumStatus()->bumVtepListIs(MacVlanPair(Wire::EthAddr(), Bridging::VlanId(10)));
    for (const char* a : {"10.0.0.2", "10.0.0.1"}) {
      list->remoteVtepAddrIs(Wire::IpAddr::fromString(a));
    }
    ip->ipIntfStatusIs(Wire::IntfId("Vlan10"))
        ->activeAddrWithMaskIs(Wire::IpAddrWithMask(Wire::IpAddr::fromString("10.0.10.1"), 24));
    r2l = new Remote2LocalForwarderSm({dir, hw, new Routing::Igmp::Application::Config("vxlan"),
                                       new Routing::Pim::Application::Config("vxlan"),
                                       hw->bumStatus(), new VniToVlanMaps("maps"), kni, counter,
                                       new Mlag::Status("mlag")});
    Local2RemoteForwarderSm::Inputs in;
    in.vtiStatusDir = dir;
    in.vxHwStatusDir = hw;
    in.vxBumStatus = hw->bumStatus();
    in.vxAgentCounter = counter;
    in.ipStatusDir = ip;
    l2r = new Local2RemoteForwarderSm(in);
    if (!r2l->vtiStatusSm(id) || !l2r->vtiStatusSm(id)) std::abort();
    l2r->vtiStatusSm(id)->peerLinkIfIndexIs(7);
  }
  std::array<uint64_t, kVxlanCounterIds> counts() const {
    std::array<uint64_t, kVxlanCounterIds> c{};
    for (uint16_t i = 0; i < kVxlanCounterIds; ++i) c[i] = counter->storage().vxlanCount(i);
    return c;
  }

  CaughtSends sys;
  Lum::ScopedSysCalls guard{sys};
  Lum::Ptr<VtiStatusDir> dir{new VtiStatusDir("vtiStatus")};
  Lum::Ptr<VxlanHwStatusDir> hw{new VxlanHwStatusDir("hw")};
  Lum::Ptr<KernelNetworkInfo::Root> kni{new KernelNetworkInfo::Root("kni")};
  Lum::Ptr<Ip::Status> ip{new Ip::Status("ip")};
  Lum::Ptr<VxlanAgentCounter> counter{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<Remote2LocalForwarderSm> r2l;
  Lum::Ptr<Local2RemoteForwarderSm> l2r;
};

void check(bool ok) {
  if (!ok) std::abort();
}

// The arguments that byte 0 and the bytes behind it describe; `at` ends on the frame.
json argsOf(const uint8_t* data, size_t size, size_t& at) {
  static constexpr const char* kDirections[] = {nullptr, "r2l", "l2r", "auto"};
  const uint8_t how = data[0];
  json args = json::object();
  at = 1;
  if (kDirections[how & 3]) args["direction"] = kDirections[how & 3];
  if ((how & 4) && at + 2 <= size) args["vlan"] = data[at] << 8 | data[at + 1], at += 2;
  if ((how & 8) && at < size) args["port"] = data[at++];
  if ((how & 0xc0) == 0xc0) args["vti"] = "Vxlan2";
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (size_t i = at; i < size; ++i) hex += {kDigits[data[i] >> 4], kDigits[data[i] & 15]};
  const int spoilt = (how >> 4) & 3;
  if (spoilt == 1 && !hex.empty()) hex.pop_back();
  if (spoilt == 2 && !hex.empty()) hex[data[size - 1] % hex.size()] = 'g';
  if (spoilt == 3) {
    for (char& c : hex) c = static_cast<char>(std::toupper(c));
  }
  args["hex"] = hex;
  return args;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Fixture* const f = new Fixture;  // kept to the end: its sockets stay open
  if (size == 0) return 0;
  size_t at = 0;
  const json args = argsOf(data, size, at);
  const auto before = f->counts();
  json a;
  try {
    a = PacketTrace::answer({f->r2l.ptr(), f->l2r.ptr()}, args);
  } catch (const Lum::Exception&) {
    check(f->counts() == before && f->sys.sent == 0);
    return 0;
  }
  check(f->counts() == before && f->sys.sent == 0);
  check(!args.contains("direction") || args["direction"] == "auto" ||
        a["direction"] == args["direction"]);
  const json& out = a["output"];
  for (const json& o : out) {
    check(o["length"].get<size_t>() * 2 == o["hex"].get_ref<const std::string&>().size());
  }
  if (a["verdict"] == "forwarded") {
    check(!out.empty() && out.size() == a["destinations"].size() && a["reason"] == "none");
  } else {
    check(a["verdict"] == "dropped" && out.empty() && !a["why"].get<std::string>().empty());
  }
  return 0;
}
