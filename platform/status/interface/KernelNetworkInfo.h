// KernelNetworkInfo::Root and KernelNetworkInfo::Interface: the network devices of one
// kernel network namespace, as the kernel reports them over rtnetlink.
//
// KernelNetworkInfo::Manager (platform/KernelNetworkInfoManager.h) is the only writer:
// it fills a Root from a link dump and keeps it in step with the kernel's link events.
// Everything else reads, and reacts through the notifiees:
//
//   struct Watch : KernelNetworkInfo::Root::NotifieeConst {
//     void onInterfaceByName(const Lum::String8& name) override {
//       Lum::Ptr<KernelNetworkInfo::Interface> i = notifier()->interfaceByName(name);
//       // empty: no device of that name any more
//     }
//   };
//
// Guarantees:
//  - `interface` (by index) and `interfaceByName` hold the same Interface objects; an
//    Interface keeps its identity for the life of the kernel device, across renames.
//  - Both maps are written before anything is notified, so a reaction to either key
//    (or to an Interface attribute) finds both maps and all attributes current.
//  - A new device is entered with all its attributes set: a reaction to
//    onInterface(i) reads its name, flags and addresses, not zeros.
//  - A rename moves the name entry: the old name is notified as removed, the new one
//    as added, and the Interface itself notifies onName().
//  - Iteration over either map is in key order and stays valid when entries are
//    deleted on the way.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/core/Collection.h"
#include "platform/core/String8.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IfIndex.h"

namespace KernelNetworkInfo {

// The attributes of one device as a plain value: what one RTM_NEWLINK message says.
struct InterfaceState {
  Wire::IfIndex ifindex;
  Lum::String8 name;
  uint32_t flags = 0;     // IFF_*
  uint8_t operState = 0;  // IF_OPER_*; 0 is IF_OPER_UNKNOWN
  Wire::EthAddr hwAddr;   // zero for a device without a 6-byte hardware address
  uint32_t mtu = 0;

  friend bool operator==(const InterfaceState&, const InterfaceState&) = default;
};

class Root;

class Interface : public Lum::Entity {
 public:
  enum : int { kIfindex = Entity::kAttrEnd, kName, kFlags, kOperState, kHwAddr, kMtu, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Interface> {
   public:
    virtual void onName() {}
    virtual void onFlags() {}
    virtual void onOperState() {}
    virtual void onHwAddr() {}
    virtual void onMtu() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, Interface>;

  // The entity is named by its index, the one thing about a device that never changes.
  explicit Interface(Wire::IfIndex ifindex) : Entity(Lum::Name(std::to_string(ifindex.value()))) {
    state_.ifindex = ifindex;
  }

  Wire::IfIndex ifindex() const { return state_.ifindex; }
  // The kernel's device name. It hides Entity::name(), which is the index as text.
  const Lum::String8& name() const { return state_.name; }
  uint32_t flags() const { return state_.flags; }
  uint8_t operState() const { return state_.operState; }
  Wire::EthAddr hwAddr() const { return state_.hwAddr; }
  uint32_t mtu() const { return state_.mtu; }
  const InterfaceState& state() const { return state_; }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  friend class Root;
  // Stores every attribute of `s` but the index, notifying each one that changed.
  void stateIs(const InterfaceState& s);

  InterfaceState state_;
};

class Root : public Lum::Entity {
 public:
  enum : int { kInterface = Entity::kAttrEnd, kInterfaceByName, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Root> {
   public:
    virtual void onInterface(Wire::IfIndex) {}
    virtual void onInterfaceByName(const Lum::String8&) {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, Root>;

  // The by-name map cannot be a Lum::Collection: a collection builds its elements
  // from its own key and parents them, while these entries are the elements of
  // `interface`, re-keyed whenever the kernel renames a device.
  using ByNameMap = std::map<Lum::String8, Lum::Ptr<Interface>>;

  // Walks `interfaceByName` in name order, holding the entry under it, so that
  // entries (this one included) may be deleted on the way.
  class ByNameIterator {
   public:
    ByNameIterator() = default;
    Interface* operator->() const { return elem_.ptr(); }
    Interface& operator*() const { return *elem_; }
    const Lum::Ptr<Interface>& ptr() const { return elem_; }
    const Lum::String8& key() const { return key_; }
    explicit operator bool() const { return static_cast<bool>(elem_); }
    ByNameIterator& operator++() {
      seat(map_->upper_bound(key_));
      return *this;
    }

   private:
    friend class Root;
    ByNameIterator(const ByNameMap* m, ByNameMap::const_iterator it) : map_(m) { seat(it); }
    void seat(ByNameMap::const_iterator it);

    const ByNameMap* map_ = nullptr;
    Lum::String8 key_;
    Lum::Ptr<Interface> elem_;
  };

  explicit Root(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<Interface> interface(Wire::IfIndex i) const { return interface_(i); }
  auto interfaceIterator() const { return interface_.iterator(); }
  size_t interfaceCount() const { return interface_.size(); }

  Lum::Ptr<Interface> interfaceByName(const Lum::String8& name) const;
  ByNameIterator interfaceByNameIterator() const {
    return ByNameIterator(&byName_, byName_.begin());
  }

  // The manager's writers. interfaceIs enters or updates the device `s.ifindex`
  // (index 0 is a range exception) and returns it; an unchanged state notifies
  // nothing. A name still held by another index (a stale entry during a resync) is
  // taken over; the other device gets its own name back with its next update.
  Lum::Ptr<Interface> interfaceIs(const InterfaceState& s);
  void interfaceDel(Wire::IfIndex i);

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  // Point `name` at `intf`; true when the entry changed.
  bool nameClaim(const Lum::String8& name, const Lum::Ptr<Interface>& intf);
  // Remove `name` if it still points at `intf`; true when removed.
  bool nameRelease(const Lum::String8& name, const Interface* intf);

  Lum::Collection<Root, Interface, Wire::IfIndex, Wire::IfIndex> interface_{
      this, "KernelNetworkInfo::Root::interface", {"ifindex"}};
  ByNameMap byName_;
};

}  // namespace KernelNetworkInfo
