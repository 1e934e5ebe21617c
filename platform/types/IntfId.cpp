#include "platform/types/IntfId.h"

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Wire {

namespace {

constexpr std::string_view kVlanPrefix = "Vlan";
constexpr std::string_view kPortChannelPrefix = "Port-Channel";
constexpr std::string_view kEthernetPrefix = "Ethernet";

struct Abbreviation {
  std::string_view full;
  std::string_view brief;
};
constexpr std::array<Abbreviation, 6> kAbbreviations{{
    {"Ethernet", "Et"},
    {"Vlan", "Vl"},
    {"Port-Channel", "Po"},
    {"Vxlan", "Vx"},
    {"Management", "Ma"},
    {"Loopback", "Lo"},
}};

std::string_view checkedName(std::string_view name) {
  for (char c : name) {
    auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte >= 0x7f) Lum::throwMalformedText(IntfId::kTypeName, name);
  }
  return name;
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// A decimal number as it appears in a canonical name: digits only, no leading zero,
// short enough not to overflow.
std::optional<uint64_t> nameNumber(std::string_view text) {
  if (text.empty() || text.size() > 9 || (text[0] == '0' && text.size() > 1)) return std::nullopt;
  return Lum::parseDecimal(text);
}

bool isPositiveNumber(std::string_view text) {
  std::optional<uint64_t> n = nameNumber(text);
  return n && *n >= 1;
}

// The part of `name` after `prefix`, or nothing when `name` does not start with it.
std::optional<std::string_view> afterPrefix(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) return std::nullopt;
  return name.substr(prefix.size());
}

bool isPortChannelName(std::string_view name) {
  std::optional<std::string_view> rest = afterPrefix(name, kPortChannelPrefix);
  return rest && isPositiveNumber(*rest);
}

// "Ethernet1", "Ethernet3/1", "Ethernet3/1/4".
bool isEthernetName(std::string_view name) {
  std::optional<std::string_view> rest = afterPrefix(name, kEthernetPrefix);
  if (!rest) return false;
  for (;;) {
    size_t slash = rest->find('/');
    if (!isPositiveNumber(rest->substr(0, slash))) return false;
    if (slash == std::string_view::npos) return true;
    rest->remove_prefix(slash + 1);
  }
}

std::optional<Bridging::VlanId> vlanOf(const IntfId& id) {
  std::optional<std::string_view> rest = afterPrefix(id.view(), kVlanPrefix);
  if (!rest) return std::nullopt;
  std::optional<uint64_t> n = nameNumber(*rest);
  if (!n || !Bridging::VlanId::isValid(*n)) return std::nullopt;
  return Bridging::VlanId(*n);
}

}  // namespace

IntfId::IntfId(std::string_view name) : name_(checkedName(name)) {}

IntfId::IntfId(const Lum::String8& name) : name_(name) {
  checkedName(name.view());
}

Lum::String8 IntfId::shortName() const {
  std::string_view name = view();
  for (const Abbreviation& a : kAbbreviations) {
    if (name.size() > a.full.size() && name.starts_with(a.full) && isDigit(name[a.full.size()])) {
      return Lum::String8(a.brief) + name.substr(a.full.size());
    }
  }
  return name_;
}

std::ostream& operator<<(std::ostream& os, const IntfId& id) {
  return os << id.view();
}

bool VlanIntfId::isVlanIntfId(const IntfId& id) {
  return vlanOf(id).has_value();
}

Bridging::VlanId VlanIntfId::vlanId(const IntfId& id) {
  std::optional<Bridging::VlanId> vlan = vlanOf(id);
  if (!vlan)
    Lum::throwRangeException("VlanIntfId: \"" + id.stringValue().str() +
                             "\" is not a VLAN interface");
  return *vlan;
}

IntfId VlanIntfId::intfId(Bridging::VlanId vlanId) {
  return IntfId(std::string(kVlanPrefix) + std::to_string(vlanId.value()));
}

bool PortChannelIntfId::isPortChannelIntfId(const IntfId& id) {
  return isPortChannelName(id.view());
}

bool SubIntfId::isSubIntfId(const IntfId& id) {
  std::string_view name = id.view();
  size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || !isPositiveNumber(name.substr(dot + 1))) return false;
  std::string_view parent = name.substr(0, dot);
  return isEthernetName(parent) || isPortChannelName(parent);
}

}  // namespace Wire
