#include "platform/status/vxlan/VarpIpMacTable.h"

#include <array>
#include <ostream>
#include <sstream>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Vxlan {

VarpIpMacEntry VarpIpMacEntry::fromString(std::string_view text) {
  // A bad field is refused with that field's own text.
  std::array<std::string_view, 3> f = Lum::splitFields<3>(text, ',', kTypeName);
  return VarpIpMacEntry(Wire::IpGenAddr::fromString(f[0]), VniOrNone::fromString(f[1]),
                        Wire::EthAddr::fromString(f[2]));
}

std::ostream& operator<<(std::ostream& os, const VarpIpMacEntry& e) {
  return os << e.ipAddr() << ',' << e.vni() << ',' << e.mac();
}

const Lum::TypeInfo& VarpIpMacTable::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VarpIpMacTable", "Lum::Entity")
        .attribute("varpIpMacEntry", kVarpIpMacEntry,
                   Lum::mapAttr<Lum::reader(&VarpIpMacTable::varpIpMacEntry),
                                static_cast<void (VarpIpMacTable::*)(const Wire::IpGenAddr&,
                                                                     const VarpIpMacEntry&)>(
                                    &VarpIpMacTable::varpIpMacEntryIs),
                                &VarpIpMacTable::varpIpMacEntryDel>()));

void VarpIpMacTable::varpIpMacEntryIs(const VarpIpMacEntry& entry) {
  const Wire::IpGenAddr& key = entry.ipAddr();
  if (key.isUnset()) {
    Lum::throwRangeException("VarpIpMacTable: an entry without address is not allowed");
  }
  if (varpIpMacEntry_.is(key, entry)) {
    notify<Lum::keyed(&NotifieeConst::onVarpIpMacEntry)>(kVarpIpMacEntry, key);
  }
}

void VarpIpMacTable::varpIpMacEntryIs(const Wire::IpGenAddr& ipAddr, const VarpIpMacEntry& entry) {
  if (!(ipAddr == entry.ipAddr())) {
    std::ostringstream text;
    text << "VarpIpMacTable: key " << ipAddr << " differs from the entry's address "
         << entry.ipAddr();
    Lum::throwRangeException(text.str());
  }
  varpIpMacEntryIs(entry);
}

void VarpIpMacTable::varpIpMacEntryDel(const Wire::IpGenAddr& ipAddr) {
  if (varpIpMacEntry_.del(ipAddr)) {
    notify<Lum::keyed(&NotifieeConst::onVarpIpMacEntry)>(kVarpIpMacEntry, ipAddr);
  }
}

void VarpIpMacTable::varpIpMacEntryDelAll() {
  if (!varpIpMacEntry_.delAll().empty()) {
    notify<Lum::whole(&NotifieeConst::onVarpIpMacEntry)>(kVarpIpMacEntry);
  }
}

const Lum::TypeInfo& VarpIpMacTableCol::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VarpIpMacTableCol", "Lum::Entity")
        .attribute("varpIpMacTable", kVarpIpMacTable,
                   Lum::collectionAttr<&VarpIpMacTableCol::varpIpMacTable,
                                       &VarpIpMacTableCol::varpIpMacTableIs,
                                       &VarpIpMacTableCol::varpIpMacTableDel,
                                       &VarpIpMacTableCol::varpIpMacTableIterator>()));

Lum::Ptr<VarpIpMacTable> VarpIpMacTableCol::varpIpMacTableIs(const Lum::String8& name) {
  const size_t before = varpIpMacTable_.size();
  Lum::Ptr<VarpIpMacTable> t = varpIpMacTable_.is(name);
  if (varpIpMacTable_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onVarpIpMacTable)>(kVarpIpMacTable, name);
  }
  return t;
}

void VarpIpMacTableCol::varpIpMacTableDel(const Lum::String8& name) {
  if (varpIpMacTable_.del(name)) {
    notify<Lum::keyed(&NotifieeConst::onVarpIpMacTable)>(kVarpIpMacTable, name);
  }
}

const Lum::TypeInfo& VarpIpMacTable::fwkType() const {
  return kType;
}

const Lum::TypeInfo& VarpIpMacTableCol::fwkType() const {
  return kType;
}

}  // namespace Vxlan
