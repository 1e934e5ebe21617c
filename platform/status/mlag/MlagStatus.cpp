#include "platform/status/mlag/MlagStatus.h"

#include "platform/core/TypeRegistry.h"

namespace Mlag {

const Lum::TypeInfo& Status::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Mlag::Status", "Lum::Entity")
        .attribute("mlagState", kMlagState,
                   Lum::textAttr<&Status::mlagState, &Status::mlagStateIs>())
        .attribute("peerLinkIntf", kPeerLinkIntf,
                   Lum::textAttr<&Status::peerLinkIntf, &Status::peerLinkIntfIs>())
        .attribute("peerMacAddr", kPeerMacAddr,
                   Lum::textAttr<&Status::peerMacAddr, &Status::peerMacAddrIs>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new Status(Lum::Name(a[0].second)));
        }));

const Lum::TypeInfo& Status::fwkType() const {
  return kType;
}

}  // namespace Mlag
