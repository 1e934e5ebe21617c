#include "platform/status/vxlan/VtepStatusV2.h"

#include "platform/core/TypeRegistry.h"

namespace VxlanController {

const Lum::TypeInfo& BfdPeerStatusV2::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("VxlanController::BfdPeerStatusV2", "Lum::Entity")
        .attribute("state", kState,
                   Lum::textAttr<&BfdPeerStatusV2::state, &BfdPeerStatusV2::stateIs>()));

BfdPeerStatusV2::BfdPeerStatusV2(Wire::IpAddr peer)
    : Entity(Lum::Name(Lum::toText(peer))), peer_(peer) {}

const Lum::TypeInfo& VtepStatusV2::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("VxlanController::VtepStatusV2", "Lum::Entity")
        .attribute("bfdPeerStatus", kBfdPeerStatus,
                   Lum::collectionAttr<&VtepStatusV2::bfdPeerStatus, &VtepStatusV2::bfdPeerStatusIs,
                                       &VtepStatusV2::bfdPeerStatusDel,
                                       &VtepStatusV2::bfdPeerStatusIterator>()));

Lum::Ptr<BfdPeerStatusV2> VtepStatusV2::bfdPeerStatusIs(Wire::IpAddr peer) {
  const size_t before = bfdPeerStatus_.size();
  Lum::Ptr<BfdPeerStatusV2> s = bfdPeerStatus_.is(peer);
  if (bfdPeerStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onBfdPeerStatus)>(kBfdPeerStatus, peer);
  }
  return s;
}

void VtepStatusV2::bfdPeerStatusDel(Wire::IpAddr peer) {
  if (bfdPeerStatus_.del(peer)) {
    notify<Lum::keyed(&NotifieeConst::onBfdPeerStatus)>(kBfdPeerStatus, peer);
  }
}

const Lum::TypeInfo& VtepStatusDirV2::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("VxlanController::VtepStatusDirV2", "Lum::Entity")
        .attribute(
            "vtepStatusV2", kVtepStatusV2,
            Lum::collectionAttr<&VtepStatusDirV2::vtepStatusV2, &VtepStatusDirV2::vtepStatusV2Is,
                                &VtepStatusDirV2::vtepStatusV2Del,
                                &VtepStatusDirV2::vtepStatusV2Iterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new VtepStatusDirV2(Lum::Name(a[0].second)));
        }));

Lum::Ptr<VtepStatusV2> VtepStatusDirV2::vtepStatusV2Is(const Lum::Name& vti) {
  const size_t before = vtepStatusV2_.size();
  Lum::Ptr<VtepStatusV2> s = vtepStatusV2_.is(vti);
  if (vtepStatusV2_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onVtepStatusV2)>(kVtepStatusV2, vti);
  }
  return s;
}

void VtepStatusDirV2::vtepStatusV2Del(const Lum::Name& vti) {
  if (vtepStatusV2_.del(vti)) {
    notify<Lum::keyed(&NotifieeConst::onVtepStatusV2)>(kVtepStatusV2, vti);
  }
}

const Lum::TypeInfo& BfdPeerStatusV2::fwkType() const {
  return kType;
}

const Lum::TypeInfo& VtepStatusV2::fwkType() const {
  return kType;
}

const Lum::TypeInfo& VtepStatusDirV2::fwkType() const {
  return kType;
}

}  // namespace VxlanController
