#include "tools/ctl/ShowView.h"

#include <algorithm>
#include <sstream>

namespace Ctl {

using nlohmann::json;

namespace {

// The values start in this column, as in a `vtysh show` block.
constexpr size_t kKeyWidth = 22;

void line(std::ostringstream& out, const std::string& key, const std::string& value) {
  std::string k = "  " + key + ":";
  // A key longer than the column keeps one space before its value.
  k.resize(std::max(kKeyWidth, k.size() + 1), ' ');
  out << k << value << "\n";
}

std::string str(const json& v) {
  return v.is_string() ? v.get<std::string>() : v.dump();
}

// A value of an object as text; "?" when the answer lacks it.
std::string field(const json& obj, const char* key) {
  const auto it = obj.find(key);
  return it == obj.end() ? "?" : str(*it);
}

// The words of a list, or `none`.
std::string words(const json& list, const std::string& none = "none") {
  std::string s;
  for (const json& w : list) s += (s.empty() ? "" : " ") + str(w);
  return s.empty() ? none : s;
}

std::string openSockets(const json& sockets) {
  std::string s;
  for (const auto& [name, open] : sockets.items()) {
    if (open.get<bool>()) s += (s.empty() ? "" : " ") + name;
  }
  return s.empty() ? "none" : s;
}

void direction(std::ostringstream& out, const char* key, const json& d) {
  const bool on = d.value("forwarding", false);
  const std::string reads = d.value("reads", "");
  line(out, key,
       std::string(on ? "forwarding" : "stopped") +
           "; sockets open: " + openSockets(d.value("sockets", json::object())) +
           (reads.empty() ? "" : "; reads: " + reads));
  std::string why;
  for (const json& r : d.value("reasons", json::array())) {
    why += (why.empty() ? "" : ", ") + r.get<std::string>();
  }
  if (!on) out << "    not forwarding: " << why << "\n";
}

void vti(std::ostringstream& out, const json& v) {
  out << v.value("name", "") << "\n";
  line(out, "state",
       std::string(v.value("operUp", false) ? "up" : "down") + ", VTEP " +
           v.value("localVtepAddr", "") + ", UDP port " + field(v, "udpPort") +
           (v.value("controllerClientMode", false) ? ", controller client" : ""));
  line(out, "source interface",
       v.value("srcIpIntf", std::string()).empty() ? "none" : field(v, "srcIpIntf"));
  for (const json& d : v.value("devices", json::array())) {
    const std::string where =
        d.value("exists", false) ? "ifindex " + field(d, "ifindex") : std::string("missing");
    line(out, "device " + field(d, "name"), field(d, "use") + ", " + where);
  }
  direction(out, "remote-to-local", v.value("remoteToLocal", json::object()));
  direction(out, "local-to-remote", v.value("localToRemote", json::object()));
  std::string map;
  for (const json& m : v.value("vniToVlan", json::array())) {
    map += (map.empty() ? "" : " ") + field(m, "vni") + "->" + field(m, "vlan");
  }
  line(out, "VNI to VLAN", map.empty() ? "none" : map);
  line(out, "replication mode", field(v, "replicationMode"));
  for (const json& f : v.value("floodLists", json::array())) {
    line(out, "flood " + field(f, "mac") + "/" + field(f, "vlan"),
         words(f.value("vteps", json::array())) +
             (f.value("sendToAny", false) ? " (send to any)" : ""));
  }
  for (const json& h : v.value("learnedHosts", json::array())) {
    line(out, "host " + field(h, "mac") + "/" + field(h, "vlan"), field(h, "vtep"));
  }
  const json mc = v.value("multicast", json::object());
  line(out, "multicast",
       "flood group " +
           (mc.value("floodGroup", json()).is_null() ? std::string("none")
                                                     : field(mc, "floodGroup")) +
           ", joined " + words(mc.value("joined", json::array())));
}

std::string mlagStateText(const json& state) {
  const int n = state.is_number() ? state.get<int>() : -1;
  const char* name = n == 0   ? "disabled"
                     : n == 1 ? "inactive"
                     : n == 3 ? "primary"
                     : n == 4 ? "secondary"
                              : "state";
  return std::string(name) + " (" + str(state) + ")";
}

void arpFull(std::ostringstream& out, const json& a) {
  out << "ARP rewrite pending lists\n";
  for (const json& p : a.value("pendingLists", json::array())) {
    line(out, field(p, "vni") + "/" + field(p, "ip"),
         "time left " + field(p, "timeLeft") + " s, asked by " +
             words(p.value("macs", json::array())));
  }
  out << "VRFs\n";
  for (const json& v : a.value("vrfs", json::array())) {
    const std::string ns = v.value("namespace", "");
    line(out, field(v, "name"),
         "namespace " + (ns.empty() ? std::string("(the agent's)") : ns) + ", netlink " +
             (v.value("netlinkOpen", false) ? "open" : "closed"));
  }
  const json m = a.value("mlagSync", json::object());
  out << "MLAG sync\n";
  line(out, "state",
       mlagStateText(m.value("mlagState", json(0))) + ", peer address " +
           m.value("peerAddress", "") + ", peer link " +
           (m.value("peerLinkIntf", "").empty() ? "none" : field(m, "peerLinkIntf")));
  for (const json& v : m.value("vtis", json::array())) {
    line(out, field(v, "name"),
         std::string(v.value("syncing", false) ? "syncing" : "off") + ", socket " +
             (v.value("socketOpen", false) ? "open" : "closed") + ", local port " +
             field(v.value("local", json::object()), "port") + ", peer " +
             field(v.value("peer", json::object()), "address") + ":" +
             field(v.value("peer", json::object()), "port"));
  }
  out << "ARP reply replication\n";
  for (const json& r : a.value("replication", json::array())) {
    std::string intfs;
    for (const json& i : r.value("interfaces", json::array())) {
      intfs += (intfs.empty() ? "" : ", ") + field(i, "name") +
               (i.value("filterInstalled", false) ? " filter installed" : " filter not installed");
    }
    line(out, "VRF " + field(r, "vrf"), intfs.empty() ? "no interfaces" : intfs);
  }
}

void arpBrief(std::ostringstream& out, const json& a) {
  size_t intfs = 0;
  size_t installed = 0;
  for (const json& r : a.value("replication", json::array())) {
    for (const json& i : r.value("interfaces", json::array())) {
      ++intfs;
      installed += i.value("filterInstalled", false) ? 1 : 0;
    }
  }
  size_t syncing = 0;
  const json m = a.value("mlagSync", json::object());
  for (const json& v : m.value("vtis", json::array())) syncing += v.value("syncing", false) ? 1 : 0;
  out << "ARP\n";
  line(out, "pending lists", std::to_string(a.value("pendingLists", json::array()).size()));
  line(out, "VRFs", std::to_string(a.value("vrfs", json::array()).size()));
  line(out, "MLAG sync",
       mlagStateText(m.value("mlagState", json(0))) + ", " + std::to_string(syncing) +
           " VTI(s) syncing");
  line(out, "reply replication",
       std::to_string(installed) + " of " + std::to_string(intfs) +
           " interface filter(s) installed");
}

}  // namespace

std::string showView(const json& show, bool brief) {
  std::ostringstream out;
  if (show.contains("interfaces")) {
    const json vtis = show["interfaces"].value("vtis", json::array());
    const std::string mode = show["interfaces"].value("frameMode", "");
    if (!mode.empty()) out << "frame mode: " << mode << "\n";
    if (vtis.empty()) out << "no VTIs\n";
    for (const json& v : vtis) vti(out, v);
  }
  if (show.contains("arp")) {
    if (show.contains("interfaces")) out << "\n";
    if (brief) {
      arpBrief(out, show["arp"]);
    } else {
      arpFull(out, show["arp"]);
    }
  }
  return out.str();
}

}  // namespace Ctl
