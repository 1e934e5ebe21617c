#include "platform/status/interface/KernelNetworkInfo.h"

namespace KernelNetworkInfo {

const Lum::TypeInfo& Interface::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("KernelNetworkInfo::Interface", "Lum::Entity")
        .attribute("ifindex", kIfindex, Lum::textAttr<&Interface::ifindex>())
        .attribute("name", kName, Lum::textAttr<&Interface::name>())
        .attribute("flags", kFlags, Lum::textAttr<&Interface::flags>())
        .attribute("operState", kOperState, Lum::textAttr<&Interface::operState>())
        .attribute("hwAddr", kHwAddr, Lum::textAttr<&Interface::hwAddr>())
        .attribute("mtu", kMtu, Lum::textAttr<&Interface::mtu>()));

const Lum::TypeInfo& Root::kType =
    Lum::TypeRegistry::add(Lum::TypeInfo("KernelNetworkInfo::Root", "Lum::Entity")
                               .attribute("interface", kInterface)
                               .attribute("interfaceByName", kInterfaceByName));

void Interface::stateIs(const InterfaceState& s) {
  attrIs<&NotifieeConst::onName>(state_.name, s.name, kName);
  attrIs<&NotifieeConst::onFlags>(state_.flags, s.flags, kFlags);
  attrIs<&NotifieeConst::onOperState>(state_.operState, s.operState, kOperState);
  attrIs<&NotifieeConst::onHwAddr>(state_.hwAddr, s.hwAddr, kHwAddr);
  attrIs<&NotifieeConst::onMtu>(state_.mtu, s.mtu, kMtu);
}

void Root::ByNameIterator::seat(ByNameMap::const_iterator it) {
  if (it == map_->end()) {
    key_ = Lum::String8();
    elem_ = nullptr;
  } else {
    key_ = it->first;
    elem_ = it->second;
  }
}

Lum::Ptr<Interface> Root::interfaceByName(const Lum::String8& name) const {
  auto it = byName_.find(name);
  return it == byName_.end() ? Lum::Ptr<Interface>() : it->second;
}

bool Root::nameClaim(const Lum::String8& name, const Lum::Ptr<Interface>& intf) {
  if (name.empty()) return false;
  Lum::Ptr<Interface>& slot = byName_[name];
  if (slot == intf) return false;
  slot = intf;
  return true;
}

bool Root::nameRelease(const Lum::String8& name, const Interface* intf) {
  auto it = byName_.find(name);
  if (it == byName_.end() || it->second.ptr() != intf) return false;
  byName_.erase(it);
  return true;
}

Lum::Ptr<Interface> Root::interfaceIs(const InterfaceState& s) {
  Lum::Ptr<Interface> intf = interface_(s.ifindex);
  if (!intf) {
    // Nobody watches the new element yet: its attributes are set silently, then the
    // two maps announce it complete.
    intf = interface_.is(s.ifindex);
    intf->stateIs(s);
    const bool named = nameClaim(s.name, intf);
    notify<&NotifieeConst::onInterface>(kInterface, s.ifindex);
    if (named) notify<&NotifieeConst::onInterfaceByName>(kInterfaceByName, s.name);
    return intf;
  }
  const Lum::String8 oldName = intf->name();
  const bool renamed = !(oldName == s.name);
  const bool released = renamed && nameRelease(oldName, intf.ptr());
  // Claimed even without a rename: the entry may have been taken over by another
  // index while this one was stale.
  const bool claimed = nameClaim(s.name, intf);
  intf->stateIs(s);
  if (released) notify<&NotifieeConst::onInterfaceByName>(kInterfaceByName, oldName);
  if (claimed) notify<&NotifieeConst::onInterfaceByName>(kInterfaceByName, s.name);
  return intf;
}

void Root::interfaceDel(Wire::IfIndex i) {
  Lum::Ptr<Interface> intf = interface_.del(i);
  if (!intf) return;
  const bool released = nameRelease(intf->name(), intf.ptr());
  notify<&NotifieeConst::onInterface>(kInterface, i);
  if (released) notify<&NotifieeConst::onInterfaceByName>(kInterfaceByName, intf->name());
}

}  // namespace KernelNetworkInfo
