#include "tools/fpemu/FpConfig.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <stdexcept>

namespace Fpemu {

namespace {

constexpr size_t kMaxDeviceName = 15;  // IFNAMSIZ less the terminating zero
constexpr uint16_t kMaxVlan = 4094;

[[noreturn]] void refuse(const std::string& what) {
  throw std::invalid_argument(what);
}

PortMode modeOf(std::string_view text) {
  if (text == "access") return PortMode::access;
  if (text == "trunk") return PortMode::trunk;
  if (text == "dot1q-tunnel") return PortMode::dot1qTunnel;
  refuse("mode " + std::string(text) + " is not access, trunk or dot1q-tunnel");
}

uint16_t vlanOf(std::string_view text) {
  unsigned v = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size() || v < 1 || v > kMaxVlan) {
    refuse("VLAN " + std::string(text) + " is not 1 to 4094");
  }
  return static_cast<uint16_t>(v);
}

void checkDevice(const std::string& name, const std::string& what) {
  if (name.empty() || name.size() > kMaxDeviceName || name.find('/') != std::string::npos) {
    refuse(what + " device name '" + name + "' is not 1 to 15 characters without '/'");
  }
}

}  // namespace

PortConfig portOf(std::string_view text) {
  const size_t first = text.find(':');
  const size_t second = first == text.npos ? text.npos : text.find(':', first + 1);
  if (second == text.npos) refuse("port '" + std::string(text) + "' is not NAME:MODE:VLANS");
  PortConfig p;
  p.name = std::string(text.substr(0, first));
  p.mode = modeOf(text.substr(first + 1, second - first - 1));
  std::string_view vlans = text.substr(second + 1);
  for (;;) {
    const size_t comma = vlans.find(',');
    p.vlans.push_back(vlanOf(vlans.substr(0, comma)));
    if (comma == vlans.npos) break;
    vlans.remove_prefix(comma + 1);
  }
  return p;
}

void vniMapEntryOf(std::string_view text, std::map<uint32_t, uint16_t>& map) {
  const size_t colon = text.find(':');
  uint32_t vni = 0;
  const std::string_view vniText = text.substr(0, colon);
  const auto [end, ec] = std::from_chars(vniText.data(), vniText.data() + vniText.size(), vni);
  if (colon == text.npos || ec != std::errc() || end != vniText.data() + vniText.size() ||
      vni < 1 || vni > 0xffffff) {
    refuse("VNI map entry '" + std::string(text) + "' is not VNI:VLAN with a VNI of 1 to 16777215");
  }
  map[vni] = vlanOf(text.substr(colon + 1));
}

EmulatorConfig configOf(const nlohmann::json& doc) {
  EmulatorConfig c;
  try {
    c.vxlanDevice = doc.value("vxlan", c.vxlanDevice);
    c.txRawDevice = doc.value("txraw", c.txRawDevice);
    for (const nlohmann::json& j : doc.at("ports")) {
      PortConfig p;
      p.name = j.at("name").get<std::string>();
      p.mode = modeOf(j.at("mode").get<std::string>());
      for (const nlohmann::json& v : j.at("vlans")) p.vlans.push_back(vlanOf(v.dump()));
      c.ports.push_back(std::move(p));
    }
  } catch (const nlohmann::json::exception& e) {
    refuse(std::string("configuration: ") + e.what());
  }
  return c;
}

void check(const EmulatorConfig& c) {
  checkDevice(c.vxlanDevice, "vxlan");
  checkDevice(c.txRawDevice, "txraw");
  if (!c.fabricDevice.empty()) checkDevice(c.fabricDevice, "fabric");
  if (c.ports.empty()) refuse("no port given");
  std::set<std::string> names = {c.vxlanDevice, c.txRawDevice};
  for (const PortConfig& p : c.ports) {
    checkDevice(p.name, "port");
    if (!names.insert(p.name).second) refuse("device " + p.name + " named twice");
    if (p.vlans.empty() || (p.mode != PortMode::trunk && p.vlans.size() != 1)) {
      refuse("port " + p.name + " needs " +
             (p.mode == PortMode::trunk ? "at least one VLAN" : "exactly one VLAN"));
    }
  }
}

}  // namespace Fpemu
