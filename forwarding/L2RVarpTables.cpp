// The mirror of the controller's virtual IP and MAC tables: VxStatusSm, IpPortTableSm
// and the lookup that the ARP code asks.
#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVxStatusSm.h"
#include "platform/core/Reconcile.h"

namespace Vxlan {

namespace {

// Whether a VTI's status still has a table of this name.
bool sharedTable(const VxlanStatusDir& dir, const Lum::String8& name) {
  for (auto it = dir.vxlanStatusIterator(); it; ++it) {
    if (it->vccIpPortTable(name)) return true;
  }
  return false;
}

}  // namespace

#define VX_TRACE(level, message) \
  LUM_TRACE(::Vxlan::L2R::trace, level, "L2RSm::" << LUM_TRACE_FUNCTION << message)

int ipPortTableVarpMacLookup(const Lum::Ptr<const VarpIpMacTableCol>& col, VniOrNone vni,
                             const Wire::IpGenAddr& ip, const Wire::EthAddr& mac) {
  if (vni.value() == 0 || !col) return 0;
  for (auto table = col->varpIpMacTableIterator(); table; ++table) {
    const VarpIpMacEntry entry = table->varpIpMacEntry(ip);
    if (entry.vni() == vni) return entry.mac() == mac ? 2 : 1;
  }
  return 0;
}

// ---- One VTI's tables ----------------------------------------------------------

Local2RemoteForwarderSm::VxStatusSm::VxStatusSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                                                const Lum::Ptr<const VxlanStatus>& status,
                                                Local2RemoteForwarderSm* owner)
    : owner_(owner) {
  lumFwkActivityIs(activity);
  // The catch-up of the new notifier builds a reactor per table.
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  handleInitialized();
}

void Local2RemoteForwarderSm::VxStatusSm::syncIpPortTable() {
  const Lum::Ptr<const VxlanStatus> status = notifier();
  if (!status) return;
  Lum::reconcileAll(ipPortTable_, status->vccIpPortTableIterator(),
                    [&status](const Lum::String8& name) { return status->vccIpPortTable(name); });
}

void Local2RemoteForwarderSm::VxStatusSm::handleInitialized() {
  initializedIs(true);
  handleIpPortTable();
}

void Local2RemoteForwarderSm::VxStatusSm::handleIpPortTable() {
  VX_TRACE(8, "");
  if (!initialized_) {
    VX_TRACE(8, " returning as SM is not initialized");
    return;
  }
  const Lum::Ptr<const VxlanStatus> status = notifier();
  if (!status) return;
  for (auto it = status->vccIpPortTableIterator(); it; ++it) handleIpPortTable(it.key());
}

void Local2RemoteForwarderSm::VxStatusSm::handleIpPortTable(const Lum::String8& vrfName) {
  VarpIpMacTableCol* col = varpIpMacTableCol();
  const Lum::Ptr<const VxlanStatus> status = notifier();
  if (!col || !status) return;
  if (const Lum::Ptr<IpPortTable> table = status->vccIpPortTable(vrfName)) {
    col->varpIpMacTableIs(vrfName);
    VX_TRACE(8, " Created VarpIpMacTable for: " << vrfName);
    // A table seen for the first time has no reactor yet: its entries are swept when
    // the reactor is built (its catch-up), so none is lost and none goes through a
    // reactor that does not exist.
    const Lum::Ptr<IpPortTableSm> sm = ipPortTable_(vrfName);
    if (!sm) return;
    for (const auto& [key, entry] : table->ipPortEntry()) sm->handleIpPortTableEntry(key);
    return;
  }
  if (const Lum::Ptr<VarpIpMacTable> mirror = col->varpIpMacTable(vrfName)) {
    mirror->varpIpMacEntryDelAll();
  }
  col->varpIpMacTableDel(vrfName);
  VX_TRACE(8, " Deleted VarpIpMacTable for: " << vrfName);
}

void Local2RemoteForwarderSm::VxStatusSm::onVccIpPortTable(const Lum::String8& vrfName) {
  handleIpPortTable(vrfName);
  const Lum::Ptr<const VxlanStatus> status = notifier();
  Lum::reconcileKey(ipPortTable_, vrfName, status ? status->vccIpPortTable(vrfName) : nullptr);
}

void Local2RemoteForwarderSm::VxStatusSm::doPrepareToDie() {
  VarpIpMacTableCol* col = varpIpMacTableCol();
  const VxlanStatusDir* dir = owner_ ? owner_->inputs().vxStatusDir.ptr() : nullptr;
  if (!col) return;
  for (auto it = ipPortTable_.iterator(); it; ++it) {
    const Lum::String8 name = it.key();
    if (dir && sharedTable(*dir, name)) continue;
    if (const Lum::Ptr<VarpIpMacTable> mirror = col->varpIpMacTable(name)) {
      mirror->varpIpMacEntryDelAll();
    }
    col->varpIpMacTableDel(name);
    VX_TRACE(8, " Deleted VarpIpMacTable for: " << name);
  }
}

// ---- One table -------------------------------------------------------------------

Local2RemoteForwarderSm::VxStatusSm::IpPortTableSm::IpPortTableSm(
    const Lum::Ptr<Lum::ActivityConfig>& activity, const Lum::Ptr<const IpPortTable>& table,
    VxStatusSm* owner)
    : owner_(owner) {
  lumFwkActivityIs(activity);
  notifierIs(table);
  isRegisteredNotifieeIs(true);
  // The entries already there: a table may arrive whole.
  for (const auto& [key, entry] : table->ipPortEntry()) handleIpPortTableEntry(key);
}

void Local2RemoteForwarderSm::VxStatusSm::IpPortTableSm::handleIpPortTableEntry(
    const Wire::IpGenAddrWithMask& ipAddr) {
  const Lum::Ptr<const IpPortTable> table = notifier();
  VarpIpMacTableCol* col = owner_ ? owner_->varpIpMacTableCol() : nullptr;
  if (!table || !col) return;
  const Lum::String8 name = table->name().string();
  const IpPortEntry entry = table->ipPortEntry(ipAddr);
  const Wire::IpGenAddr addr = ipAddr.address();
  const Lum::Ptr<VarpIpMacTable> mirror = col->varpIpMacTableIs(name);
  if (entry == IpPortEntry()) {
    mirror->varpIpMacEntryDel(addr);
    VX_TRACE(8, " Deleted VarpIpMacEntry for: " << addr);
    return;
  }
  mirror->varpIpMacEntryIs(VarpIpMacEntry(addr, entry.vni(), entry.mac()));
  VX_TRACE(8, " Added VarpIpMacEntry for: " << addr);
}

}  // namespace Vxlan
