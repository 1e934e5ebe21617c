#include "forwarding/PacketTrace.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include <string>
#include <vector>

#include "forwarding/DropTables.h"
#include "forwarding/Local2RemoteForwarderSm.h"
#include "forwarding/Remote2LocalForwarderSm.h"
#include "forwarding/TestMode.h"
#include "frames/LocalFrameHdr.h"
#include "frames/VxlanDatagram.h"
#include "platform/core/Exception.h"
#include "platform/core/TypeRegistry.h"
#include "platform/types/ValueText.h"

namespace Vxlan::PacketTrace {

namespace {

using nlohmann::json;
using Bytes = std::vector<uint8_t>;
using R2LSm = Remote2LocalForwarderSm::LumVtiStatusSm;
using L2RSm = Local2RemoteForwarderSm::LumVtiStatusSm;

// 0x and four hex digits (or `digits`).
std::string hex16(uint32_t v, int digits = 4) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%0*x", digits, v);
  return buf;
}

// Plain hex, two digits a byte: the tool takes the operator's spaces, colons and 0x out.
Bytes bytesOfHex(const std::string& hex) {
  const auto digit = [&hex](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    throw Lum::Exception("\"hex\" holds '" + std::string(1, c) + "', not a hex digit");
  };
  if (hex.empty() || hex.size() % 2 != 0) {
    throw Lum::Exception("\"hex\" needs two digits for each byte of the frame");
  }
  Bytes b;
  for (size_t i = 0; i < hex.size(); i += 2) {
    b.push_back(static_cast<uint8_t>(digit(hex[i]) << 4 | digit(hex[i + 1])));
  }
  return b;
}

uint16_t be16(const Bytes& f, size_t at) {
  return at + 2 <= f.size() ? static_cast<uint16_t>(f[at] << 8 | f[at + 1]) : 0;
}

void step(json& out, const char* check, bool passed, const std::string& words) {
  out["steps"].push_back({{"check", check}, {"passed", passed}, {"text", words}});
}

// The verdict of a dropped frame: its reason's name and counter from the drop table
// (none: L2R::kNoCounter), and the failed step's words.
void dropped(json& out, const char* reason, uint32_t counter, const std::string& why) {
  out["verdict"] = "dropped";
  out["reason"] = reason;
  out["counter"] = counter == L2R::kNoCounter
                       ? json(nullptr)
                       : json(std::string(vxlanCounterName(static_cast<uint16_t>(counter))));
  out["why"] = why;
}

void forwarded(json& out, VxlanCounterId counter, const std::string& why) {
  out["verdict"] = "forwarded";
  out["reason"] = "none";
  out["counter"] = std::string(vxlanCounterName(static_cast<uint16_t>(counter)));
  out["why"] = why;
}

// ---- Remote to local ------------------------------------------------------------

// The outer headers of a datagram, as far as the frame holds them whole.
struct Outer {
  bool whole = false;
  uint32_t tag = 0;
  uint32_t offset = 0;  // of the VXLAN header
  uint16_t ethType = 0;
  uint8_t protocol = 0;
  Wire::IpAddr saddr, daddr;
  uint16_t dport = 0;
  uint8_t flags = 0;
  uint32_t vni = 0;
};

Outer outerOf(const Bytes& f) {
  Outer o;
  if (f.size() <= Wire::kEthHdrLen) return o;
  o.tag = VxlanDatagram::tagLen(f.data());
  if (f.size() <= VxlanDatagram::kMinIpUdpLen + o.tag) return o;
  const Wire::Ipv4Hdr* ip = VxlanDatagram::ip(f.data(), o.tag);
  o.offset = VxlanDatagram::vxlanOffset(o.tag, ip->headerLen());
  if (f.size() < o.offset + Wire::kVxlanHdrLen) return o;
  o.ethType = VxlanDatagram::ethType(f.data(), o.tag);
  o.protocol = ip->protocol;
  o.saddr = ip->saddr();
  o.daddr = ip->daddr();
  o.dport = VxlanDatagram::udp(f.data(), o.tag, ip->headerLen())->dstPort.value();
  const Wire::VxlanHdr* vxlan = Wire::hdrAt<Wire::VxlanHdr>(f.data() + o.offset);
  o.flags = vxlan->flags;
  o.vni = vxlan->vniValue();
  o.whole = true;
  return o;
}

// Step 4 of decapFrame in words: which of its conditions the datagram fails, or "".
std::string filterFailure(const Outer& o, const R2L::FrameFilter& f) {
  if (o.ethType != Wire::kEthTypeIpv4) return "Ethernet type " + hex16(o.ethType) + " is not IPv4";
  if (o.saddr == f.localVtep)
    return "the source " + Lum::toText(o.saddr) + " is our own VTEP address";
  if (o.daddr != f.floodGroup && o.daddr != f.localVtep) {
    return "the destination " + Lum::toText(o.daddr) + " is neither our VTEP address " +
           Lum::toText(f.localVtep) + " nor the flood group " + Lum::toText(f.floodGroup);
  }
  if (o.dport != f.udpPort) {
    return "UDP port " + std::to_string(o.dport) + " is not ours (" + std::to_string(f.udpPort) +
           ")";
  }
  return "";
}

std::string toWhom(const Outer& o, const R2L::FrameFilter& f) {
  return (o.daddr == f.localVtep ? "our VTEP address " : "the flood group ") + Lum::toText(o.daddr);
}

// The words of check `why` of decapFrame, passed or failed.
std::string r2lWords(R2L::Drop why, bool passed, const Outer& o, const R2L::Decap& d,
                     const R2L::FrameFilter& f, uint32_t len) {
  const std::string n = std::to_string(len) + " bytes";
  switch (why) {
    case R2L::Drop::tooShort:
      return passed ? n + ", longer than its Ethernet, IPv4 and UDP headers"
                    : n + ", not longer than " + std::to_string(d.detail);
    case R2L::Drop::empty:
      return passed ? "a VXLAN header and an inner Ethernet header from byte " +
                          std::to_string(o.offset)
                    : n + ", not longer than " + std::to_string(d.detail) +
                          ": no room for a VXLAN header and an inner Ethernet header";
    case R2L::Drop::filtered:
      return passed ? "IPv4/UDP from " + Lum::toText(o.saddr) + " to " + toWhom(o, f) + ", port " +
                          std::to_string(o.dport)
                    : filterFailure(o, f);
    case R2L::Drop::badFlags:
      return "flags " + hex16(o.flags, 2) +
             (passed ? " carry the VNI-valid bit" : " lack the VNI-valid bit (0x08)");
    case R2L::Drop::unknownVlan:
      return passed ? "VNI " + std::to_string(d.detail) + " is VLAN " + Lum::toText(d.vlan)
                    : "no VLAN for VNI " + std::to_string(d.detail);
    default:
      return "";
  }
}

json r2lAnswer(const R2LSm& sm, const Bytes& frame, json out) {
  const R2L::FrameFilter f = sm.frameFilter();
  const uint32_t len = static_cast<uint32_t>(frame.size());
  Bytes buf = frame;  // rewritten in place when forwarded
  const R2L::Decap d = R2L::decapFrame(buf.data(), len, f);
  const Outer o = outerOf(frame);
  static constexpr std::pair<R2L::Drop, const char*> kChecks[] = {{R2L::Drop::tooShort, "length"},
                                                                  {R2L::Drop::empty, "vxlanLength"},
                                                                  {R2L::Drop::filtered, "filter"},
                                                                  {R2L::Drop::badFlags, "flags"},
                                                                  {R2L::Drop::unknownVlan, "vni"}};
  for (const auto& [why, check] : kChecks) {
    const bool passed = d.drop != why;
    step(out, check, passed, r2lWords(why, passed, o, d, f, len));
    if (!passed) {
      if (why == R2L::Drop::unknownVlan) out["vni"] = d.detail;
      if (why == R2L::Drop::filtered && FRAME_MODE == FrameMode::filtered) {
        out["notes"].push_back(
            "in the filtered frame mode the kernel drops such a datagram "
            "before the agent reads it: no counter moves");
      }
      const R2L::DropRow& row = R2L::dropRow(why);
      dropped(out, row.name, static_cast<uint32_t>(row.counter),
              out["steps"].back()["text"].get<std::string>());
      return out;
    }
  }
  out["vni"] = d.detail;
  out["vlan"] = d.vlan.vlanId().value();
  step(out, "rewrite", true,
       "the txraw header: VLAN " + Lum::toText(d.vlan) + ", port id " + hex16(f.portId.value()));
  forwarded(out, VxlanCounterId::r2lTxFrames, "to txraw, VLAN " + Lum::toText(d.vlan));
  out["destinations"].push_back("txraw");
  out["output"].push_back({{"to", "txraw"},
                           {"length", d.length},
                           {"hex", Lum::hexText(buf.data() + d.offset, d.length)}});
  if (sm.localSock() == -1) {
    out["notes"].push_back("the sockets of " + Lum::toText(sm.intfId()) +
                           " are closed: the agent reads no frame on it now");
  }
  return out;
}

// ---- Local to remote ------------------------------------------------------------

// The machine's own ARP answer and rewrite, asked as the frame path asks them, with
// the rewrite left uncounted; what was asked is kept for the steps.
class ArpHook : public L2R::ArpRequestHook {
 public:
  explicit ArpHook(L2RSm& sm) : sm_(sm) {}
  bool herRequired(uint32_t vlan, uint32_t targetIp) override {
    asked = true;
    target = Wire::IpAddr::fromHostOrder(targetIp);
    required = sm_.arpHERRequired(vlan, targetIp);
    return required;
  }
  void rewriteNakedRequest(uint8_t* frame, uint32_t l2Offset, VniOrNone vni) override {
    rewritten = sm_.checkAndRewriteNakedArpRequest(frame, l2Offset, vni, false);
  }

  bool asked = false;
  bool required = true;
  bool rewritten = false;
  Wire::IpAddr target;

 private:
  L2RSm& sm_;
};

std::string l2rWords(L2R::Drop why, bool passed, const L2R::Encap& e, const Bytes& frame,
                     const ArpHook& arp) {
  switch (why) {
    case L2R::Drop::badLength:
      return std::to_string(frame.size()) + " bytes, " + (passed ? "within" : "outside") +
             " 24 to 9999";
    case L2R::Drop::badType: {
      const uint16_t type = be16(frame, Wire::kEthMacBytes);
      if (!passed) return "type " + hex16(type) + " is not a local frame's (0x0041 or 0x0033)";
      return "local header type " + hex16(type) +
             (type == kEncapTypeHi ? " (high priority)" : " (low priority)");
    }
    case L2R::Drop::badVlan:
      return "user VLAN " + std::to_string(e.vlan) + (passed ? "" : " is out of range (1 to 4094)");
    case L2R::Drop::noVni:
      return passed ? "VLAN " + std::to_string(e.vlan) + " is VNI " + std::to_string(e.vni)
                    : "no VNI for VLAN " + std::to_string(e.vlan);
    case L2R::Drop::peerLink:
      if (!passed) return "received on the MLAG peer link (index " + std::to_string(e.detail) + ")";
      return e.srcIfIndex == 0 ? "no source port index"
                               : "source port index " + std::to_string(e.srcIfIndex) +
                                     " is not the MLAG peer link";
    case L2R::Drop::arpNotRequired:
      if (!passed)
        return "ARP request for " + Lum::toText(arp.target) + ", an address of this switch";
      return "ARP request for " + Lum::toText(arp.target) + ", not an address of this switch" +
             (arp.rewritten ? "; its sender MAC becomes the bridge MAC" : "");
    default:
      return "";
  }
}

// The steps of encapFrame up to its verdict; false when it dropped the frame.
bool encapSteps(json& out, const L2R::Encap& e, const Bytes& frame, const ArpHook& arp) {
  static constexpr std::pair<L2R::Drop, const char*> kChecks[] = {
      {L2R::Drop::badLength, "length"},  {L2R::Drop::badType, "type"},
      {L2R::Drop::badVlan, "vlan"},      {L2R::Drop::noVni, "vni"},
      {L2R::Drop::peerLink, "peerLink"}, {L2R::Drop::arpNotRequired, "arp"}};
  for (const auto& [why, check] : kChecks) {
    // The ARP question is asked of an ARP request only.
    if (why == L2R::Drop::arpNotRequired && !arp.asked) break;
    const bool passed = e.drop != why;
    step(out, check, passed, l2rWords(why, passed, e, frame, arp));
    if (passed) continue;
    const L2R::DropRow& row = L2R::dropRow(why);
    dropped(out, row.name, row.counter, out["steps"].back()["text"].get<std::string>());
    return false;
  }
  return true;
}

void tagSteps(json& out, const L2R::Encap& e) {
  if (e.tagsRemoved & L2R::Encap::kStripped) {
    step(out, "tag", true, "tag of VLAN " + std::to_string(e.strippedVlan) + " removed");
  }
  if (e.tunnelPort) step(out, "tag", true, "from a dot1q-tunnel port: the customer's tag stays");
  if (e.tagsRemoved & L2R::Encap::kStrippedInTrunk) {
    step(out, "tag", true, "trunk tag of VLAN " + std::to_string(e.strippedTrunkVlan) + " removed");
  }
}

// The destinations as the frame loop chooses them, one packet for each that is not an
// address of our own; false when there is none.
bool destinationSteps(json& out, const L2RSm& sm, const L2R::Encap& e, L2R::FrameBuffer& buf) {
  const Wire::EthAddr dst = Wire::EthAddr::fromBytes(buf.bytes() + e.frameOffset());
  const L2RSm::Destinations d = sm.destinationsOf(dst, e.vlan);
  std::vector<Wire::IpAddr> chosen;
  if (d.hostIp != 0) chosen.push_back(Wire::IpAddr::fromHostOrder(d.hostIp));
  if (d.list) {
    for (const auto& [addr, member] : d.list->remoteVtepAddr()) chosen.push_back(addr);
  }
  if (d.sendToAnyMiss != L2R::kNoCounter) {
    out["notes"].push_back("the send-to-any choice counts " +
                           std::string(vxlanCounterName(uint16_t(d.sendToAnyMiss))));
  }
  std::string words =
      Lum::toText(dst) + " on VLAN " + std::to_string(e.vlan) + ": " + d.how + " ->";
  if (chosen.empty()) {
    step(out, "destinations", false, words + " none");
    const L2R::DropRow& row = L2R::dropRow(L2R::Drop::noDestination);
    dropped(out, row.name, row.counter, words + " none");
    return false;
  }
  uint8_t* hdr = buf.bytes() + e.offset;
  for (Wire::IpAddr addr : chosen) {
    words += " " + Lum::toText(addr);
    if (sm.ownAddress(addr)) {
      words += " (our own: skipped)";
      continue;
    }
    L2R::destinationIs(hdr, addr);
    out["destinations"].push_back(Lum::toText(addr));
    out["output"].push_back(
        {{"to", Lum::toText(addr)}, {"length", e.length}, {"hex", Lum::hexText(hdr, e.length)}});
  }
  step(out, "destinations", true, words);
  return true;
}

json l2rAnswer(L2RSm& sm, const Bytes& frame, json out) {
  const auto buf = std::make_unique<L2R::FrameBuffer>();
  const uint32_t len = static_cast<uint32_t>(frame.size());
  std::copy_n(frame.begin(), std::min<size_t>(len, L2R::kReadSize), buf->read);
  ArpHook arp(sm);
  L2R::EncapFilter filter = sm.encapFilter();
  filter.arp = &arp;
  const L2R::Encap e = L2R::encapFrame(*buf, len, filter);
  if (e.vlan != 0 && e.drop != L2R::Drop::badLength) out["vlan"] = e.vlan;
  if (e.vni != 0) out["vni"] = e.vni;
  if (!encapSteps(out, e, frame, arp)) return out;
  tagSteps(out, e);
  if (!destinationSteps(out, sm, e, *buf)) return out;
  if (e.arpFlag) step(out, "arpFlag", true, "ARP flag: a copy goes to the ARP resolver");
  const size_t n = out["destinations"].size();
  forwarded(out, VxlanCounterId::l2rForwardFrames,
            "to " + std::to_string(n) + (n == 1 ? " destination" : " destinations"));
  return out;
}

// ---- The query ------------------------------------------------------------------

// A user frame given with its VLAN (and port): the local frame the forwarding plane
// would hand over for it on the high-priority socket.
Bytes localFrameOf(const Bytes& user, uint32_t vlan, uint32_t port) {
  if (user.size() < Wire::kEthHdrLen) throw Lum::Exception("a user frame has 14 bytes at least");
  Bytes f(user.begin(), user.begin() + Wire::kEthMacBytes);
  for (uint32_t v : {uint32_t{kEncapTypeHi}, 0u}) f.insert(f.end(), {uint8_t(v >> 8), uint8_t(v)});
  for (uint32_t v : {vlan, port}) {
    f.insert(f.end(), {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)});
  }
  f.insert(f.end(), user.begin() + Wire::kEthMacBytes, user.end());
  return f;
}

// Which direction, and why in words; `r2l` null when there is no such machine.
std::string directionOf(const json& args, const Bytes& frame, const R2LSm* r2l, bool& l2r) {
  const std::string asked = args.value("direction", std::string("auto"));
  if (asked != "auto" && asked != "r2l" && asked != "l2r") {
    throw Lum::Exception("\"direction\" is auto, r2l or l2r");
  }
  if (asked != "auto") {
    l2r = asked == "l2r";
    return "as asked";
  }
  const uint16_t type = be16(frame, Wire::kEthMacBytes);
  l2r = args.contains("vlan") || type == kEncapTypeHi || type == kEncapTypeLo;
  if (args.contains("vlan")) return "a user frame on a VLAN -> local-to-remote";
  if (l2r) {
    return "local header type " + hex16(type) + " from the forwarding plane -> local-to-remote";
  }
  const Outer o = outerOf(frame);
  if (r2l && o.whole && o.protocol == Wire::kIpProtoUdp &&
      filterFailure(o, r2l->frameFilter()).empty()) {
    return "IPv4/UDP to port " + std::to_string(o.dport) + " of " + toWhom(o, r2l->frameFilter()) +
           " -> remote-to-local";
  }
  return "not a local frame (type " + hex16(type) +
         ") -> remote-to-local, as read from the underlay";
}

Wire::IntfId vtiOf(const VtiStatusDir* dir, const json& args) {
  if (!dir || dir->vtiStatusSize() == 0) {
    throw Lum::Exception("no VXLAN tunnel interface in the state: nothing to trace");
  }
  if (!args.contains("vti")) return dir->vtiStatusIterator().key();
  const Wire::IntfId id(args["vti"].get<std::string>());
  if (!dir->vtiStatus(id)) throw Lum::Exception("no VXLAN tunnel interface " + Lum::toText(id));
  return id;
}

json base(const Wire::IntfId& vti, bool l2r, const std::string& why, size_t length) {
  return {{"vti", Lum::toText(vti)}, {"direction", l2r ? "l2r" : "r2l"}, {"directionWhy", why},
          {"length", length},        {"steps", json::array()},           {"vni", nullptr},
          {"vlan", nullptr},         {"destinations", json::array()},    {"output", json::array()},
          {"notes", json::array()}};
}

}  // namespace

json remoteToLocal(const R2LSm& sm, const Bytes& frame) {
  return r2lAnswer(sm, frame, base(sm.intfId(), false, "as asked", frame.size()));
}

json localToRemote(L2RSm& sm, const Bytes& frame) {
  return l2rAnswer(sm, frame, base(sm.intfId(), true, "as asked", frame.size()));
}

json answer(const Machines& m, const json& args) {
  if (!m.r2l || !m.l2r) throw Lum::Exception("the forwarding machines are not running");
  if (!args.contains("hex") || !args["hex"].is_string()) {
    throw Lum::Exception("\"hex\" is a string");
  }
  const VtiStatusDir* dir = m.r2l->vtiStatusDir().ptr();
  const Wire::IntfId vti = vtiOf(dir, args);
  if (dir->vtiStatus(vti)->operStatus() != Interface::IntfOperStatus::intfOperUp) {
    throw Lum::Exception(Lum::toText(vti) + " is not up: the agent forwards nothing on it");
  }
  const Lum::Ptr<R2LSm> r2l = m.r2l->vtiStatusSm(vti);
  const Lum::Ptr<L2RSm> l2r = m.l2r->vtiStatusSm(vti);
  Bytes frame = bytesOfHex(args["hex"].get<std::string>());
  bool toRemote = false;
  const std::string why = directionOf(args, frame, r2l.ptr(), toRemote);
  if (toRemote ? !l2r : !r2l)
    throw Lum::Exception(Lum::toText(vti) + " has no forwarding machine yet");
  if (toRemote && args.contains("vlan")) {
    frame = localFrameOf(frame, args["vlan"].get<uint32_t>(), args.value("port", 0u));
  }
  json out = base(vti, toRemote, why, frame.size());
  return toRemote ? l2rAnswer(*l2r, frame, std::move(out)) : r2lAnswer(*r2l, frame, std::move(out));
}

}  // namespace Vxlan::PacketTrace
