#include "platform/status/VniToVlanMaps.h"

namespace Vxlan {

const Lum::TypeInfo& VniToVlanMap::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VniToVlanMap", "Lum::Entity").attribute("vniToVlanMap", kVniToVlanMap));

const Lum::TypeInfo& VniToVlanMaps::kType =
    Lum::TypeRegistry::add(Lum::TypeInfo("Vxlan::VniToVlanMaps", "Lum::Entity")
                               .attribute("vtiVniToVlanMap", kVtiVniToVlanMap));

Lum::Ptr<VniToVlanMap> VniToVlanMaps::vtiVniToVlanMapIs(const Wire::IntfId& id) {
  const size_t before = maps_.size();
  Lum::Ptr<VniToVlanMap> m = maps_.is(id);
  if (maps_.size() != before) notify<&NotifieeConst::onVtiVniToVlanMap>(kVtiVniToVlanMap, id);
  return m;
}

void VniToVlanMaps::vtiVniToVlanMapDel(const Wire::IntfId& id) {
  if (maps_.del(id)) notify<&NotifieeConst::onVtiVniToVlanMap>(kVtiVniToVlanMap, id);
}

}  // namespace Vxlan
