#include "platform/status/mlag/MlagConfig.h"

#include "platform/core/TypeRegistry.h"

namespace Mlag {

const Lum::TypeInfo& Config::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Mlag::Config", "Lum::Entity")
        .attribute("peerAddress", kPeerAddress,
                   Lum::textAttr<&Config::peerAddress, &Config::peerAddressIs>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new Config(Lum::Name(a[0].second)));
        }));

const Lum::TypeInfo& Config::fwkType() const {
  return kType;
}

}  // namespace Mlag
