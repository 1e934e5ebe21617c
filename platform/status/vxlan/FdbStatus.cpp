#include "platform/status/vxlan/FdbStatus.h"

#include "platform/core/TypeRegistry.h"

namespace Vxlan {

const Lum::TypeInfo& LearnedHost::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::LearnedHost", "Lum::Entity")
        .attribute("remoteVtepAddr", kRemoteVtepAddr,
                   Lum::textAttr<&LearnedHost::remoteVtepAddr, &LearnedHost::remoteVtepAddrIs>()));

LearnedHost::LearnedHost(const MacVlanPair& key)
    : Entity(Lum::Name(Lum::toText(key))), macVlan_(key) {}

const Lum::TypeInfo& FdbStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::FdbStatus", "Lum::Entity")
        .attribute(
            "learnedHost", kLearnedHost,
            Lum::collectionAttr<&FdbStatus::learnedHost, &FdbStatus::learnedHostIs,
                                &FdbStatus::learnedHostDel, &FdbStatus::learnedHostIterator>()));

Lum::Ptr<LearnedHost> FdbStatus::learnedHostIs(const MacVlanPair& key) {
  const size_t before = learnedHost_.size();
  Lum::Ptr<LearnedHost> h = learnedHost_.is(key);
  if (learnedHost_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onLearnedHost)>(kLearnedHost, key);
  }
  return h;
}

void FdbStatus::learnedHostDel(const MacVlanPair& key) {
  if (learnedHost_.del(key)) notify<Lum::keyed(&NotifieeConst::onLearnedHost)>(kLearnedHost, key);
}

const Lum::TypeInfo& LearnedHost::fwkType() const {
  return kType;
}

const Lum::TypeInfo& FdbStatus::fwkType() const {
  return kType;
}

}  // namespace Vxlan
