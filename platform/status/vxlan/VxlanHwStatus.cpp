#include "platform/status/vxlan/VxlanHwStatus.h"

#include "platform/core/TypeRegistry.h"

namespace Vxlan {

const Lum::TypeInfo& VxlanHwStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VxlanHwStatus", "Lum::Entity")
        .attribute("portId", kPortId,
                   Lum::textAttr<&VxlanHwStatus::portId, &VxlanHwStatus::portIdIs>())
        .attribute(
            "cpuSourcePortId", kCpuSourcePortId,
            Lum::textAttr<&VxlanHwStatus::cpuSourcePortId, &VxlanHwStatus::cpuSourcePortIdIs>())
        .attribute("remoteVtep", kRemoteVtep,
                   Lum::mapAttr<Lum::reader(&VxlanHwStatus::remoteVtep),
                                &VxlanHwStatus::remoteVtepIs, &VxlanHwStatus::remoteVtepDel>()));

const Lum::TypeInfo& VxlanHwStatusDir::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VxlanHwStatusDir", "Lum::Entity")
        .attribute("fdbStatus", kFdbStatus, Lum::childAttr<&VxlanHwStatusDir::fdbStatus>())
        .attribute(
            "vxlanHwStatus", kVxlanHwStatus,
            Lum::collectionAttr<
                &VxlanHwStatusDir::vxlanHwStatus, &VxlanHwStatusDir::vxlanHwStatusIs,
                &VxlanHwStatusDir::vxlanHwStatusDel, &VxlanHwStatusDir::vxlanHwStatusIterator>())
        .attribute("bumStatus", kBumStatus, Lum::childAttr<&VxlanHwStatusDir::bumStatus>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new VxlanHwStatusDir(Lum::Name(a[0].second)));
        }));

VxlanHwStatusDir::VxlanHwStatusDir(const Lum::Name& name)
    : Entity(name), fdbStatus_(new FdbStatus("fdbStatus")), bumStatus_(new BumStatus("bumStatus")) {
  fdbStatus_->parentIs(this);
  fdbStatus_->parentAttrIdIs(kFdbStatus);
  bumStatus_->parentIs(this);
  bumStatus_->parentAttrIdIs(kBumStatus);
}

VxlanHwStatusDir::~VxlanHwStatusDir() {
  // Readers may hold the children longer than the directory: they must not keep a
  // pointer to it.
  fdbStatus_->parentIs(nullptr);
  bumStatus_->parentIs(nullptr);
}

Lum::Ptr<VxlanHwStatus> VxlanHwStatusDir::vxlanHwStatusIs(const Wire::IntfId& id) {
  const size_t before = vxlanHwStatus_.size();
  Lum::Ptr<VxlanHwStatus> s = vxlanHwStatus_.is(id);
  if (vxlanHwStatus_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onVxlanHwStatus)>(kVxlanHwStatus, id);
  }
  return s;
}

void VxlanHwStatusDir::vxlanHwStatusDel(const Wire::IntfId& id) {
  if (vxlanHwStatus_.del(id)) {
    notify<Lum::keyed(&NotifieeConst::onVxlanHwStatus)>(kVxlanHwStatus, id);
  }
}

const Lum::TypeInfo& VxlanHwStatus::fwkType() const {
  return kType;
}

const Lum::TypeInfo& VxlanHwStatusDir::fwkType() const {
  return kType;
}

}  // namespace Vxlan
