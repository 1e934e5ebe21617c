#include "platform/status/bridging/BridgingHwCapabilities.h"

namespace Bridging {

const Lum::TypeInfo& HwCapabilities::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Bridging::HwCapabilities", "Lum::Entity")
        .attribute("vxlanTxRawSupported", kVxlanTxRawSupported,
                   Lum::textAttr<&HwCapabilities::vxlanTxRawSupported,
                                 &HwCapabilities::vxlanTxRawSupportedIs>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new HwCapabilities(Lum::Name(a[0].second)));
        }));

}  // namespace Bridging
