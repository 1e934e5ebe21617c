#include "platform/status/vxlan/BumStatus.h"

#include "platform/core/TypeRegistry.h"

namespace Vxlan {

const Lum::TypeInfo& BumVtepList::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::BumVtepList", "Lum::Entity")
        .attribute("remoteVtepAddr", kRemoteVtepAddr,
                   Lum::mapAttr<Lum::reader(&BumVtepList::remoteVtepAddr),
                                &BumVtepList::remoteVtepAddrIs, &BumVtepList::remoteVtepAddrDel>())
        .attribute("listType", kListType,
                   Lum::textAttr<&BumVtepList::listType, &BumVtepList::listTypeIs>()));

BumVtepList::BumVtepList(const MacVlanPair& key)
    : Entity(Lum::Name(Lum::toText(key))), macVlan_(key) {}

const Lum::TypeInfo& BumStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::BumStatus", "Lum::Entity")
        .attribute(
            "bumReplicationMode", kBumReplicationMode,
            Lum::textAttr<&BumStatus::bumReplicationMode, &BumStatus::bumReplicationModeIs>())
        .attribute("bumMcastGrp", kBumMcastGrp,
                   Lum::mapAttr<Lum::reader(&BumStatus::bumMcastGrp), &BumStatus::bumMcastGrpIs,
                                &BumStatus::bumMcastGrpDel>())
        .attribute(
            "bumVtepList", kBumVtepList,
            Lum::collectionAttr<&BumStatus::bumVtepList, &BumStatus::bumVtepListIs,
                                &BumStatus::bumVtepListDel, &BumStatus::bumVtepListIterator>()));

Lum::Ptr<BumVtepList> BumStatus::bumVtepListIs(const MacVlanPair& key) {
  const size_t before = bumVtepList_.size();
  Lum::Ptr<BumVtepList> l = bumVtepList_.is(key);
  if (bumVtepList_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onBumVtepList)>(kBumVtepList, key);
  }
  return l;
}

void BumStatus::bumVtepListDel(const MacVlanPair& key) {
  if (bumVtepList_.del(key)) notify<Lum::keyed(&NotifieeConst::onBumVtepList)>(kBumVtepList, key);
}

const Lum::TypeInfo& BumVtepList::fwkType() const {
  return kType;
}

const Lum::TypeInfo& BumStatus::fwkType() const {
  return kType;
}

}  // namespace Vxlan
