// Vxlan::VarpIpMacTableCol, Vxlan::VarpIpMacTable and Vxlan::VarpIpMacEntry: the
// agent's own mirror of the controller's tables of virtual addresses.
//
// Kept in the agent's memory only (the agent creates the collection
// "OverlayRelayAgentCol"). The local-to-remote forwarder is its only writer: one
// table per table name of a VTI's Vxlan::VxlanStatus, one entry per address of it.
// The ARP code of both directions reads it to learn whether an (address, VNI) is a
// virtual host and under which MAC. A lookup of an absent address gives the default
// entry: unset address, no VNI (0x1000000), all-zero MAC.
#pragma once

#include <iosfwd>
#include <string_view>

#include "platform/core/Attributes.h"
#include "platform/core/String8.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IpAddr.h"
#include "platform/types/Vni.h"

namespace Vxlan {

// One virtual host. Text form: "<address>,<vni>,<mac>", for example
// "10.1.1.5,5000,00:11:22:33:44:55"; the default entry is ",16777216,00:00:00:00:00:00".
class VarpIpMacEntry {
 public:
  static constexpr std::string_view kTypeName = "VarpIpMacEntry";

  VarpIpMacEntry() = default;
  VarpIpMacEntry(const Wire::IpGenAddr& ipAddr, VniOrNone vni, const Wire::EthAddr& mac)
      : ipAddr_(ipAddr), vni_(vni), mac_(mac) {}
  static VarpIpMacEntry fromString(std::string_view text);

  const Wire::IpGenAddr& ipAddr() const { return ipAddr_; }
  VniOrNone vni() const { return vni_; }
  const Wire::EthAddr& mac() const { return mac_; }

  friend bool operator==(const VarpIpMacEntry& a, const VarpIpMacEntry& b) = default;

 private:
  Wire::IpGenAddr ipAddr_;
  VniOrNone vni_;
  Wire::EthAddr mac_;
};

std::ostream& operator<<(std::ostream& os, const VarpIpMacEntry& e);

// Entries are stored under their own address (checkEntry): a key that differs from
// the entry's address, or an entry without address (it would read back as absent),
// is a range exception. The one-argument varpIpMacEntryIs takes the key from the entry.
#define VXLAN_VARP_IP_MAC_TABLE_ATTRS(X) \
  X(MAP_CHECKED, VarpIpMacEntry, varpIpMacEntry, Wire::IpGenAddr, VarpIpMacEntry, checkEntry)

class VarpIpMacTable : public Lum::Entity {
  LUM_ENTITY(Vxlan::VarpIpMacTable, Lum::Entity, VXLAN_VARP_IP_MAC_TABLE_ATTRS)

  explicit VarpIpMacTable(const Lum::String8& name) : Entity(Lum::Name(name)) {}
  void varpIpMacEntryIs(const VarpIpMacEntry& entry) { varpIpMacEntryIs(entry.ipAddr(), entry); }
  static void checkEntry(const Wire::IpGenAddr& ipAddr, const VarpIpMacEntry& entry);
};

// Tables in name order, stable between changes: lookups take the first match.
#define VXLAN_VARP_IP_MAC_TABLE_COL_ATTRS(X) \
  X(COLLECTION, VarpIpMacTable, varpIpMacTable, Lum::String8, VarpIpMacTable, name)

class VarpIpMacTableCol : public Lum::Entity {
  LUM_ENTITY(Vxlan::VarpIpMacTableCol, Lum::Entity, VXLAN_VARP_IP_MAC_TABLE_COL_ATTRS)

  explicit VarpIpMacTableCol(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Vxlan
