#include "platform/status/ip/IpStatus.h"

namespace Ip {

const Lum::TypeInfo& IpIntfStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Ip::IpIntfStatus", "Lum::Entity")
        .attribute(
            "activeAddrWithMask", kActiveAddrWithMask,
            Lum::textAttr<&IpIntfStatus::activeAddrWithMask, &IpIntfStatus::activeAddrWithMaskIs>())
        .attribute("activeSecondaryWithMask", kActiveSecondaryWithMask,
                   Lum::mapAttr<Lum::reader(&IpIntfStatus::activeSecondaryWithMask),
                                &IpIntfStatus::activeSecondaryWithMaskIs,
                                &IpIntfStatus::activeSecondaryWithMaskDel>())
        .attribute("activeVirtualAddrWithMask", kActiveVirtualAddrWithMask,
                   Lum::textAttr<&IpIntfStatus::activeVirtualAddrWithMask,
                                 &IpIntfStatus::activeVirtualAddrWithMaskIs>())
        .attribute("vrf", kVrf, Lum::textAttr<&IpIntfStatus::vrf, &IpIntfStatus::vrfIs>()));

const Lum::TypeInfo& VrfIpIntfStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Ip::VrfIpIntfStatus", "Lum::Entity")
        .attribute(
            "ipIntfStatus", kIpIntfStatus,
            Lum::collectionAttr<&VrfIpIntfStatus::ipIntfStatus, &VrfIpIntfStatus::ipIntfStatusIs,
                                &VrfIpIntfStatus::ipIntfStatusDel,
                                &VrfIpIntfStatus::ipIntfStatusIterator>()));

const Lum::TypeInfo& Status::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Ip::Status", "Lum::Entity")
        .attribute("ipIntfStatus", kIpIntfStatus,
                   Lum::collectionAttr<&Status::ipIntfStatus, &Status::ipIntfStatusIs,
                                       &Status::ipIntfStatusDel, &Status::ipIntfStatusIterator>())
        .attribute(
            "vrfIpIntfStatus", kVrfIpIntfStatus,
            Lum::collectionAttr<&Status::vrfIpIntfStatus, &Status::vrfIpIntfStatusIs,
                                &Status::vrfIpIntfStatusDel, &Status::vrfIpIntfStatusIterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new Status(Lum::Name(a[0].second)));
        }));

Lum::Ptr<IpIntfStatus> VrfIpIntfStatus::ipIntfStatusIs(const Wire::IntfId& id) {
  const size_t before = ipIntfStatus_.size();
  Lum::Ptr<IpIntfStatus> s = ipIntfStatus_.is(id);
  if (ipIntfStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onIpIntfStatus)>(kIpIntfStatus, id);
  }
  return s;
}

void VrfIpIntfStatus::ipIntfStatusDel(const Wire::IntfId& id) {
  if (ipIntfStatus_.del(id)) notify<Lum::keyed(&NotifieeConst::onIpIntfStatus)>(kIpIntfStatus, id);
}

Lum::Ptr<IpIntfStatus> Status::ipIntfStatusIs(const Wire::IntfId& id) {
  const size_t before = ipIntfStatus_.size();
  Lum::Ptr<IpIntfStatus> s = ipIntfStatus_.is(id);
  if (ipIntfStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onIpIntfStatus)>(kIpIntfStatus, id);
  }
  return s;
}

void Status::ipIntfStatusDel(const Wire::IntfId& id) {
  if (ipIntfStatus_.del(id)) notify<Lum::keyed(&NotifieeConst::onIpIntfStatus)>(kIpIntfStatus, id);
}

Lum::Ptr<VrfIpIntfStatus> Status::vrfIpIntfStatusIs(const L3::VrfName& vrf) {
  const size_t before = vrfIpIntfStatus_.size();
  Lum::Ptr<VrfIpIntfStatus> s = vrfIpIntfStatus_.is(vrf);
  if (vrfIpIntfStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onVrfIpIntfStatus)>(kVrfIpIntfStatus, vrf);
  }
  return s;
}

void Status::vrfIpIntfStatusDel(const L3::VrfName& vrf) {
  if (vrfIpIntfStatus_.del(vrf)) {
    notify<Lum::keyed(&NotifieeConst::onVrfIpIntfStatus)>(kVrfIpIntfStatus, vrf);
  }
}

}  // namespace Ip
