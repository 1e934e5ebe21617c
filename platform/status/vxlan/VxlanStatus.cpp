#include "platform/status/vxlan/VxlanStatus.h"

#include <array>
#include <ostream>
#include <sstream>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Vxlan {

IpPortEntry IpPortEntry::fromString(std::string_view text) {
  // A bad field is refused with that field's own text.
  std::array<std::string_view, 3> f = Lum::splitFields<3>(text, ',', kTypeName);
  return IpPortEntry(Wire::IpGenAddrWithMask::fromString(f[0]), VniOrNone::fromString(f[1]),
                     Wire::EthAddr::fromString(f[2]));
}

std::ostream& operator<<(std::ostream& os, const IpPortEntry& e) {
  return os << e.ipAddr() << ',' << e.vni() << ',' << e.mac();
}

const Lum::TypeInfo& IpPortTable::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::IpPortTable", "Lum::Entity")
        .attribute("ipPortEntry", kIpPortEntry,
                   Lum::mapAttr<Lum::reader(&IpPortTable::ipPortEntry),
                                static_cast<void (IpPortTable::*)(const Wire::IpGenAddrWithMask&,
                                                                  const IpPortEntry&)>(
                                    &IpPortTable::ipPortEntryIs),
                                &IpPortTable::ipPortEntryDel>()));

void IpPortTable::ipPortEntryIs(const IpPortEntry& entry) {
  const Wire::IpGenAddrWithMask& key = entry.ipAddr();
  if (key.address().isUnset()) {
    Lum::throwRangeException("IpPortTable: an entry without address is not allowed");
  }
  if (ipPortEntry_.is(key, entry)) {
    notify<Lum::keyed(&NotifieeConst::onIpPortEntry)>(kIpPortEntry, key);
  }
}

void IpPortTable::ipPortEntryIs(const Wire::IpGenAddrWithMask& ipAddr, const IpPortEntry& entry) {
  if (!(ipAddr == entry.ipAddr())) {
    std::ostringstream text;
    text << "IpPortTable: key " << ipAddr << " differs from the entry's address " << entry.ipAddr();
    Lum::throwRangeException(text.str());
  }
  ipPortEntryIs(entry);
}

void IpPortTable::ipPortEntryDel(const Wire::IpGenAddrWithMask& ipAddr) {
  if (ipPortEntry_.del(ipAddr)) {
    notify<Lum::keyed(&NotifieeConst::onIpPortEntry)>(kIpPortEntry, ipAddr);
  }
}

const Lum::TypeInfo& VxlanStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VxlanStatus", "Lum::Entity")
        .attribute("vccIpPortTable", kVccIpPortTable,
                   Lum::collectionAttr<&VxlanStatus::vccIpPortTable, &VxlanStatus::vccIpPortTableIs,
                                       &VxlanStatus::vccIpPortTableDel,
                                       &VxlanStatus::vccIpPortTableIterator>()));

Lum::Ptr<IpPortTable> VxlanStatus::vccIpPortTableIs(const Lum::String8& name) {
  const size_t before = vccIpPortTable_.size();
  Lum::Ptr<IpPortTable> t = vccIpPortTable_.is(name);
  if (vccIpPortTable_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onVccIpPortTable)>(kVccIpPortTable, name);
  }
  return t;
}

void VxlanStatus::vccIpPortTableDel(const Lum::String8& name) {
  if (vccIpPortTable_.del(name)) {
    notify<Lum::keyed(&NotifieeConst::onVccIpPortTable)>(kVccIpPortTable, name);
  }
}

const Lum::TypeInfo& VxlanStatusDir::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VxlanStatusDir", "Lum::Entity")
        .attribute("vxlanStatus", kVxlanStatus,
                   Lum::collectionAttr<&VxlanStatusDir::vxlanStatus, &VxlanStatusDir::vxlanStatusIs,
                                       &VxlanStatusDir::vxlanStatusDel,
                                       &VxlanStatusDir::vxlanStatusIterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new VxlanStatusDir(Lum::Name(a[0].second)));
        }));

Lum::Ptr<VxlanStatus> VxlanStatusDir::vxlanStatusIs(const Wire::IntfId& id) {
  const size_t before = vxlanStatus_.size();
  Lum::Ptr<VxlanStatus> s = vxlanStatus_.is(id);
  if (vxlanStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onVxlanStatus)>(kVxlanStatus, id);
  }
  return s;
}

void VxlanStatusDir::vxlanStatusDel(const Wire::IntfId& id) {
  if (vxlanStatus_.del(id)) notify<Lum::keyed(&NotifieeConst::onVxlanStatus)>(kVxlanStatus, id);
}

const Lum::TypeInfo& IpPortTable::fwkType() const {
  return kType;
}

const Lum::TypeInfo& VxlanStatus::fwkType() const {
  return kType;
}

const Lum::TypeInfo& VxlanStatusDir::fwkType() const {
  return kType;
}

}  // namespace Vxlan
