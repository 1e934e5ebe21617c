#include "platform/status/routing/FhrpStatusV4.h"

#include <string>

namespace Routing::Fhrp {

const Lum::TypeInfo& VirtualRouterStatusV4::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Routing::Fhrp::VirtualRouterStatusV4", "Lum::Entity")
        .attribute(
            "ipAddrs", kIpAddrs,
            Lum::mapAttr<Lum::reader(&VirtualRouterStatusV4::ipAddrs),
                         &VirtualRouterStatusV4::ipAddrsIs, &VirtualRouterStatusV4::ipAddrsDel>()));

const Lum::TypeInfo& VirtualRouterIntfStatusV4::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Routing::Fhrp::VirtualRouterIntfStatusV4", "Lum::Entity")
        .attribute("vrStatus", kVrStatus,
                   Lum::collectionAttr<&VirtualRouterIntfStatusV4::vrStatus,
                                       &VirtualRouterIntfStatusV4::vrStatusIs,
                                       &VirtualRouterIntfStatusV4::vrStatusDel,
                                       &VirtualRouterIntfStatusV4::vrStatusIterator>()));

const Lum::TypeInfo& StatusV4::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Routing::Fhrp::StatusV4", "Lum::Entity")
        .attribute("intfStatus", kIntfStatus,
                   Lum::collectionAttr<&StatusV4::intfStatus, &StatusV4::intfStatusIs,
                                       &StatusV4::intfStatusDel, &StatusV4::intfStatusIterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new StatusV4(Lum::Name(a[0].second)));
        }));

VirtualRouterStatusV4::VirtualRouterStatusV4(VrId vrId)
    : Entity(Lum::Name(std::to_string(vrId.value()))), vrId_(vrId) {}

Lum::Ptr<VirtualRouterStatusV4> VirtualRouterIntfStatusV4::vrStatusIs(VrId id) {
  const size_t before = vrStatus_.size();
  Lum::Ptr<VirtualRouterStatusV4> s = vrStatus_.is(id);
  if (vrStatus_.size() != before) notify<Lum::keyed(&NotifieeConst::onVrStatus)>(kVrStatus, id);
  return s;
}

void VirtualRouterIntfStatusV4::vrStatusDel(VrId id) {
  if (vrStatus_.del(id)) notify<Lum::keyed(&NotifieeConst::onVrStatus)>(kVrStatus, id);
}

Lum::Ptr<VirtualRouterIntfStatusV4> StatusV4::intfStatusIs(const Wire::IntfId& id) {
  const size_t before = intfStatus_.size();
  Lum::Ptr<VirtualRouterIntfStatusV4> s = intfStatus_.is(id);
  if (intfStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onIntfStatus)>(kIntfStatus, id);
  }
  return s;
}

void StatusV4::intfStatusDel(const Wire::IntfId& id) {
  if (intfStatus_.del(id)) notify<Lum::keyed(&NotifieeConst::onIntfStatus)>(kIntfStatus, id);
}

bool StatusV4::isSharedVirtualAddr(const Wire::IntfId& intf, Wire::IpAddr addr) const {
  Lum::Ptr<VirtualRouterIntfStatusV4> i = intfStatus(intf);
  if (!i) return false;
  Lum::Ptr<VirtualRouterStatusV4> vr = i->vrStatus(kSharedVirtualRouterVrId);
  return vr && vr->ipAddrs(addr);
}

}  // namespace Routing::Fhrp
