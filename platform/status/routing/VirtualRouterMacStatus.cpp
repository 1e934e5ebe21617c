#include "platform/status/routing/VirtualRouterMacStatus.h"

namespace Routing::Fhrp {

const Lum::TypeInfo& VirtualRouterMacStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Routing::Fhrp::VirtualRouterMacStatus", "Lum::Entity")
        .attribute("varpVirtualMac", kVarpVirtualMac,
                   Lum::textAttr<&VirtualRouterMacStatus::varpVirtualMac,
                                 &VirtualRouterMacStatus::varpVirtualMacIs>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new VirtualRouterMacStatus(Lum::Name(a[0].second)));
        }));

}  // namespace Routing::Fhrp
