#include "platform/status/vxlan/VtiStatusDir.h"

namespace Vxlan {

const Lum::TypeInfo& VtiStatusDir::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VtiStatusDir", "Lum::Entity")
        .attribute("value", kValue, Lum::textAttr<&VtiStatusDir::value, &VtiStatusDir::valueIs>())
        .attribute(
            "vtiStatus", kVtiStatus,
            Lum::collectionAttr<&VtiStatusDir::vtiStatus, &VtiStatusDir::vtiStatusIs,
                                &VtiStatusDir::vtiStatusDel, &VtiStatusDir::vtiStatusIterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new VtiStatusDir(Lum::Name(a[0].second)));
        }));

Lum::Ptr<VtiStatus> VtiStatusDir::vtiStatusIs(const Wire::IntfId& id) {
  const size_t before = vtiStatus_.size();
  Lum::Ptr<VtiStatus> s = vtiStatus_.is(id);
  if (vtiStatus_.size() != before) notify<Lum::keyed(&NotifieeConst::onVtiStatus)>(kVtiStatus, id);
  return s;
}

void VtiStatusDir::vtiStatusDel(const Wire::IntfId& id) {
  if (vtiStatus_.del(id)) notify<Lum::keyed(&NotifieeConst::onVtiStatus)>(kVtiStatus, id);
}

const Lum::TypeInfo& VtiStatusDir::fwkType() const {
  return kType;
}

}  // namespace Vxlan
