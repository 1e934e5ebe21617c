#include "DemoModel.h"

namespace Demo {

const Lum::TypeInfo& Link::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Demo::Link", "Lum::Entity")
        .attribute("operStatus", kOperStatus,
                   Lum::textAttr<&Link::operStatus, &Link::operStatusIs>())
        .attribute("mtu", kMtu, Lum::textAttr<&Link::mtu, &Link::mtuIs>())
        .attribute("vlanVni", kVlanVni)
        .operation("down", [](Lum::Entity& e) { static_cast<Link&>(e).operStatusIs(0); })
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Ptr<Lum::Entity> {
          return Ptr<Lum::Entity>(new Link(Lum::Name(a[0].second)));
        }));

}  // namespace Demo
