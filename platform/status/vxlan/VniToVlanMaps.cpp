#include "platform/status/vxlan/VniToVlanMaps.h"

namespace Vxlan {

const Lum::TypeInfo& VniToVlanMap::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VniToVlanMap", "Lum::Entity")
        .attribute("vniToVlanMap", kVniToVlanMap,
                   Lum::mapAttr<Lum::reader(&VniToVlanMap::vniToVlanMap),
                                &VniToVlanMap::vniToVlanMapIs, &VniToVlanMap::vniToVlanMapDel>()));

const Lum::TypeInfo& VniToVlanMaps::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VniToVlanMaps", "Lum::Entity")
        .attribute(
            "vtiVniToVlanMap", kVtiVniToVlanMap,
            Lum::collectionAttr<&VniToVlanMaps::vtiVniToVlanMap, &VniToVlanMaps::vtiVniToVlanMapIs,
                                &VniToVlanMaps::vtiVniToVlanMapDel,
                                &VniToVlanMaps::vtiVniToVlanMapIterator>()));

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
