// Vxlan::VxlanStatusDir, Vxlan::VxlanStatus, Vxlan::IpPortTable and Vxlan::IpPortEntry:
// the tables of virtual addresses that the controller side publishes for each VTI.
//
// Per VTI, a VxlanStatus holds named tables (vccIpPortTable); each table maps an
// address with mask to an IpPortEntry: the address, the VNI it lives in and the MAC
// behind it. The local-to-remote forwarder mirrors the tables into the agent's
// Vxlan::VarpIpMacTableCol, and virtual ARP asks whether a VTI has any table at all.
// Looking up an absent address gives the default entry (unset address, no VNI,
// all-zero MAC), which is how a reader tells a removed entry from a present one.
#pragma once

#include <iosfwd>
#include <string_view>

#include "platform/core/Attributes.h"
#include "platform/core/String8.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/Vni.h"

namespace Vxlan {

// One virtual address. Text form: "<address/len>,<vni>,<mac>", for example
// "10.1.1.5/32,5000,00:11:22:33:44:55"; the default entry is ",16777216,00:00:00:00:00:00".
class IpPortEntry {
 public:
  static constexpr std::string_view kTypeName = "IpPortEntry";

  IpPortEntry() = default;
  IpPortEntry(const Wire::IpGenAddrWithMask& ipAddr, VniOrNone vni, const Wire::EthAddr& mac)
      : ipAddr_(ipAddr), vni_(vni), mac_(mac) {}
  static IpPortEntry fromString(std::string_view text);

  const Wire::IpGenAddrWithMask& ipAddr() const { return ipAddr_; }
  VniOrNone vni() const { return vni_; }
  const Wire::EthAddr& mac() const { return mac_; }

  friend bool operator==(const IpPortEntry& a, const IpPortEntry& b) = default;

 private:
  Wire::IpGenAddrWithMask ipAddr_;
  VniOrNone vni_;
  Wire::EthAddr mac_;
};

std::ostream& operator<<(std::ostream& os, const IpPortEntry& e);

// Entries are stored under their own address (checkEntry): a key that differs from
// the entry's address, or an entry without address (it would read back as absent),
// is a range exception. The one-argument ipPortEntryIs takes the key from the entry.
#define VXLAN_IP_PORT_TABLE_ATTRS(X) \
  X(MAP_CHECKED, IpPortEntry, ipPortEntry, Wire::IpGenAddrWithMask, IpPortEntry, checkEntry)

class IpPortTable : public Lum::Entity {
  LUM_ENTITY(Vxlan::IpPortTable, Lum::Entity, VXLAN_IP_PORT_TABLE_ATTRS)

  explicit IpPortTable(const Lum::String8& name) : Entity(Lum::Name(name)) {}
  void ipPortEntryIs(const IpPortEntry& entry) { ipPortEntryIs(entry.ipAddr(), entry); }
  static void checkEntry(const Wire::IpGenAddrWithMask& ipAddr, const IpPortEntry& entry);
};

#define VXLAN_VXLAN_STATUS_ATTRS(X) \
  X(COLLECTION, VccIpPortTable, vccIpPortTable, Lum::String8, IpPortTable, name)

class VxlanStatus : public Lum::Entity {
  LUM_ENTITY(Vxlan::VxlanStatus, Lum::Entity, VXLAN_VXLAN_STATUS_ATTRS)

  explicit VxlanStatus(const Wire::IntfId& id) : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

 private:
  Wire::IntfId intfId_;
};

#define VXLAN_VXLAN_STATUS_DIR_ATTRS(X) \
  X(COLLECTION, VxlanStatus, vxlanStatus, Wire::IntfId, VxlanStatus, intfId)

class VxlanStatusDir : public Lum::Entity {
  LUM_ENTITY(Vxlan::VxlanStatusDir, Lum::Entity, VXLAN_VXLAN_STATUS_DIR_ATTRS)

  explicit VxlanStatusDir(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Vxlan
