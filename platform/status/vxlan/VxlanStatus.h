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

#include "platform/core/Collection.h"
#include "platform/core/String8.h"
#include "platform/core/ValueMap.h"
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

class IpPortTable : public Lum::Entity {
 public:
  enum : int { kIpPortEntry = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<IpPortTable> {
   public:
    virtual void onIpPortEntry(const Wire::IpGenAddrWithMask&) {}
    virtual void onIpPortEntry() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, IpPortTable>;

  explicit IpPortTable(const Lum::String8& name) : Entity(Lum::Name(name)) {}

  // The default entry when `ipAddr` is absent.
  IpPortEntry ipPortEntry(const Wire::IpGenAddrWithMask& ipAddr) const {
    return ipPortEntry_(ipAddr);
  }
  const Lum::ValueMap<Wire::IpGenAddrWithMask, IpPortEntry>& ipPortEntry() const {
    return ipPortEntry_;
  }
  // Stores `entry` under its own address, replacing an older one. An entry without
  // an address is a range exception: it would read back as absent.
  void ipPortEntryIs(const IpPortEntry& entry);
  // The same, for writers that name the key apart (the generic interface): a key
  // other than the entry's address is a range exception.
  void ipPortEntryIs(const Wire::IpGenAddrWithMask& ipAddr, const IpPortEntry& entry);
  void ipPortEntryDel(const Wire::IpGenAddrWithMask& ipAddr);

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::ValueMap<Wire::IpGenAddrWithMask, IpPortEntry> ipPortEntry_;
};

class VxlanStatus : public Lum::Entity {
 public:
  enum : int { kVccIpPortTable = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VxlanStatus> {
   public:
    virtual void onVccIpPortTable(const Lum::String8&) {}
    virtual void onVccIpPortTable() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VxlanStatus>;

  explicit VxlanStatus(const Wire::IntfId& id) : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

  Lum::Ptr<IpPortTable> vccIpPortTable(const Lum::String8& name) const {
    return vccIpPortTable_(name);
  }
  Lum::Ptr<IpPortTable> vccIpPortTableIs(const Lum::String8& name);
  void vccIpPortTableDel(const Lum::String8& name);
  auto vccIpPortTableIterator() const { return vccIpPortTable_.iterator(); }
  size_t vccIpPortTableSize() const { return vccIpPortTable_.size(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Wire::IntfId intfId_;
  Lum::Collection<VxlanStatus, IpPortTable, Lum::String8, Lum::String8> vccIpPortTable_{
      this, "Vxlan::VxlanStatus::vccIpPortTable", {"name"}};
};

class VxlanStatusDir : public Lum::Entity {
 public:
  enum : int { kVxlanStatus = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VxlanStatusDir> {
   public:
    virtual void onVxlanStatus(const Wire::IntfId&) {}
    virtual void onVxlanStatus() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VxlanStatusDir>;

  explicit VxlanStatusDir(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<VxlanStatus> vxlanStatus(const Wire::IntfId& id) const { return vxlanStatus_(id); }
  Lum::Ptr<VxlanStatus> vxlanStatusIs(const Wire::IntfId& id);
  void vxlanStatusDel(const Wire::IntfId& id);
  auto vxlanStatusIterator() const { return vxlanStatus_.iterator(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<VxlanStatusDir, VxlanStatus, Wire::IntfId, Wire::IntfId> vxlanStatus_{
      this, "Vxlan::VxlanStatusDir::vxlanStatus", {"intfId"}};
};

}  // namespace Vxlan
