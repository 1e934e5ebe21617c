#include "platform/status/interface/EthIntfStatusDir.h"

namespace Interface {

const Lum::TypeInfo& EthIntfStatus::kType =
    Lum::TypeRegistry::add(Lum::TypeInfo("Interface::EthIntfStatus", "Interface::IntfStatus"));

const Lum::TypeInfo& EthIntfStatusDir::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Interface::EthIntfStatusDir", "Lum::Entity")
        .attribute(
            "intfStatus", kIntfStatus,
            Lum::collectionAttr<&EthIntfStatusDir::intfStatus, &EthIntfStatusDir::intfStatusIs,
                                &EthIntfStatusDir::intfStatusDel,
                                &EthIntfStatusDir::intfStatusIterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new EthIntfStatusDir(Lum::Name(a[0].second)));
        }));

Lum::Ptr<EthIntfStatus> EthIntfStatusDir::intfStatusIs(const Wire::IntfId& id) {
  const size_t before = intfStatus_.size();
  Lum::Ptr<EthIntfStatus> s = intfStatus_.is(id);
  if (intfStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onIntfStatus)>(kIntfStatus, id);
  }
  return s;
}

void EthIntfStatusDir::intfStatusDel(const Wire::IntfId& id) {
  if (intfStatus_.del(id)) notify<Lum::keyed(&NotifieeConst::onIntfStatus)>(kIntfStatus, id);
}

}  // namespace Interface
