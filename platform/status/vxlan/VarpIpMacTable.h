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

#include "platform/core/Collection.h"
#include "platform/core/String8.h"
#include "platform/core/ValueMap.h"
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

class VarpIpMacTable : public Lum::Entity {
 public:
  enum : int { kVarpIpMacEntry = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VarpIpMacTable> {
   public:
    virtual void onVarpIpMacEntry(const Wire::IpGenAddr&) {}
    virtual void onVarpIpMacEntry() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VarpIpMacTable>;

  explicit VarpIpMacTable(const Lum::String8& name) : Entity(Lum::Name(name)) {}

  // The default entry when `ipAddr` is absent.
  VarpIpMacEntry varpIpMacEntry(const Wire::IpGenAddr& ipAddr) const {
    return varpIpMacEntry_(ipAddr);
  }
  const Lum::ValueMap<Wire::IpGenAddr, VarpIpMacEntry>& varpIpMacEntry() const {
    return varpIpMacEntry_;
  }
  // Stores `entry` under its own address, replacing an older one. An entry without
  // an address is a range exception: it would read back as absent.
  void varpIpMacEntryIs(const VarpIpMacEntry& entry);
  // The same, for writers that name the key apart (the generic interface): a key
  // other than the entry's address is a range exception.
  void varpIpMacEntryIs(const Wire::IpGenAddr& ipAddr, const VarpIpMacEntry& entry);
  void varpIpMacEntryDel(const Wire::IpGenAddr& ipAddr);
  // One whole-map notification, not one per address.
  void varpIpMacEntryDelAll();

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::ValueMap<Wire::IpGenAddr, VarpIpMacEntry> varpIpMacEntry_;
};

class VarpIpMacTableCol : public Lum::Entity {
 public:
  enum : int { kVarpIpMacTable = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VarpIpMacTableCol> {
   public:
    virtual void onVarpIpMacTable(const Lum::String8&) {}
    virtual void onVarpIpMacTable() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VarpIpMacTableCol>;

  explicit VarpIpMacTableCol(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<VarpIpMacTable> varpIpMacTable(const Lum::String8& name) const {
    return varpIpMacTable_(name);
  }
  Lum::Ptr<VarpIpMacTable> varpIpMacTableIs(const Lum::String8& name);
  void varpIpMacTableDel(const Lum::String8& name);
  // Tables in name order, stable between changes: lookups take the first match.
  auto varpIpMacTableIterator() const { return varpIpMacTable_.iterator(); }

  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<VarpIpMacTableCol, VarpIpMacTable, Lum::String8, Lum::String8> varpIpMacTable_{
      this, "Vxlan::VarpIpMacTableCol::varpIpMacTable", {"name"}};
};

}  // namespace Vxlan
