// Vxlan::Local2RemoteForwarderSm::VxStatusSm and its IpPortTableSm: the mirror of the
// controller's virtual IP and MAC tables in the agent's own collection.
//
// The controller publishes, per VTI (Vxlan::VxlanStatus), named tables of the hosts
// behind virtual addresses (vccIpPortTable). One VxStatusSm per VTI keeps, for every
// table name, a Vxlan::VarpIpMacTable of the same name in l2rVarpIpMacTableCol with an
// entry per address; an IpPortTableSm per table follows its entries. The ARP code asks
// the collection through ipPortTableVarpMacLookup. A table's entries leave the
// collection before the table does.
#pragma once

#include "forwarding/Local2RemoteForwarderSm.h"

namespace Vxlan {

// Whether (vni, ip) is a virtual host: 0 when no table has an entry with that VNI for
// `ip` (or `vni` is 0), else 1, or 2 when that entry's MAC is `mac`. The first table in
// the collection's order whose entry carries `vni` decides; an absent address reads as
// the default entry, so `vni` none matches any table without `ip`.
int ipPortTableVarpMacLookup(const Lum::Ptr<const VarpIpMacTableCol>& col, VniOrNone vni,
                             const Wire::IpGenAddr& ip, const Wire::EthAddr& mac);

class Local2RemoteForwarderSm::VxStatusSm : public VxlanStatus::NotifieeConst {
 public:
  class IpPortTableSm : public IpPortTable::NotifieeConst {
   public:
    IpPortTableSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                  const Lum::Ptr<const IpPortTable>& table, VxStatusSm* owner);
    IpPortTableSm(const Lum::Ptr<const IpPortTable>& table, VxStatusSm* owner)
        : IpPortTableSm(owner ? owner->lumFwkActivity() : nullptr, table, owner) {}
    static Lum::String8 lumKeyOf(const Lum::Ptr<const IpPortTable>& t) {
      return t->name().string();
    }
    void parentIs(VxStatusSm* owner) { owner_ = owner; }

    void handleIpPortTableEntry(const Wire::IpGenAddrWithMask& ipAddr);
    void onIpPortEntry(const Wire::IpGenAddrWithMask& ipAddr) override {
      handleIpPortTableEntry(ipAddr);
    }

   private:
    VxStatusSm* owner_;
  };

  VxStatusSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
             const Lum::Ptr<const VxlanStatus>& status, Local2RemoteForwarderSm* owner);
  VxStatusSm(const Lum::Ptr<const VxlanStatus>& status, Local2RemoteForwarderSm* owner)
      : VxStatusSm(owner ? owner->lumFwkActivity() : nullptr, status, owner) {}
  static Wire::IntfId lumKeyOf(const Lum::Ptr<const VxlanStatus>& s) { return s->intfId(); }
  void parentIs(Local2RemoteForwarderSm* owner) { owner_ = owner; }

  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }
  Lum::Ptr<IpPortTableSm> ipPortTable(const Lum::String8& name) const { return ipPortTable_(name); }
  size_t ipPortTableSize() const { return ipPortTable_.size(); }
  VarpIpMacTableCol* varpIpMacTableCol() const {
    return owner_ ? owner_->inputs().l2rVarpIpMacTableCol.ptr() : nullptr;
  }

  void handleInitialized();
  void handleIpPortTable();
  void handleIpPortTable(const Lum::String8& vrfName);
  void onVccIpPortTable(const Lum::String8& vrfName) override;
  void onVccIpPortTable() override { syncIpPortTable(); }
  // A VTI's status gone: its tables leave the mirror, unless another VTI has a table
  // of the same name.
  void doPrepareToDie() override;

 protected:
  void onNotifier() override { syncIpPortTable(); }

 private:
  void syncIpPortTable();

  Local2RemoteForwarderSm* owner_;
  bool initialized_ = false;
  Lum::Collection<VxStatusSm, IpPortTableSm, Lum::String8, Lum::Ptr<const IpPortTable>>
      ipPortTable_{this, "Vxlan::Local2RemoteForwarderSm::VxStatusSm::ipPortTable", {"table"}};
};

}  // namespace Vxlan
