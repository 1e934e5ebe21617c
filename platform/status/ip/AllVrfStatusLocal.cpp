#include "platform/status/ip/AllVrfStatusLocal.h"

namespace Ip {

const Lum::TypeInfo& VrfStatusLocal::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Ip::VrfStatusLocal", "Lum::Entity")
        .attribute("state", kState,
                   Lum::textAttr<&VrfStatusLocal::state, &VrfStatusLocal::stateIs>())
        .attribute("networkNamespace", kNetworkNamespace,
                   Lum::textAttr<&VrfStatusLocal::networkNamespace,
                                 &VrfStatusLocal::networkNamespaceIs>()));

const Lum::TypeInfo& AllVrfStatusLocal::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Ip::AllVrfStatusLocal", "Lum::Entity")
        .attribute(
            "vrf", kVrf,
            Lum::collectionAttr<&AllVrfStatusLocal::vrf, &AllVrfStatusLocal::vrfIs,
                                &AllVrfStatusLocal::vrfDel, &AllVrfStatusLocal::vrfIterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new AllVrfStatusLocal(Lum::Name(a[0].second)));
        }));

Lum::Ptr<VrfStatusLocal> AllVrfStatusLocal::vrfIs(const L3::VrfName& name) {
  const size_t before = vrf_.size();
  Lum::Ptr<VrfStatusLocal> s = vrf_.is(name);
  if (vrf_.size() != before) notify<Lum::keyed(&NotifieeConst::onVrf)>(kVrf, name);
  return s;
}

void AllVrfStatusLocal::vrfDel(const L3::VrfName& name) {
  if (vrf_.del(name)) notify<Lum::keyed(&NotifieeConst::onVrf)>(kVrf, name);
}

}  // namespace Ip
