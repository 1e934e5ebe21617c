// The virtual ARP machine of the unit tests and the fuzz targets: one VTI Vxlan1 with
// local VTEP 10.0.0.1 and virtual VTEP 10.0.0.100, VLAN 10 on VNI 5010 (and VNI 5020 on
// VLAN 20), VLAN 10 flooding to both of those and to .2, .3 and .4; an IP interface
// Vlan10 (10.1.1.1/24) with its kernel device vlan10 (index 31); bridge MAC ..:b0,
// virtual MAC 00:00:5e:00:01:01; the forwarding plane taking "txraw" (device 7) with CPU
// port 0x21. The PAMs are open on a kernel (TestSupport::VarpKernel) that records what
// leaves, without any real socket.
#pragma once

#include "tests/varp/VarpKernel.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {

inline Wire::EthAddr mac(uint8_t last) {
  return Wire::EthAddr(0x0200, 0, last);
}
inline Wire::IpAddr ip(const char* text) {
  return Wire::IpAddr::fromString(text);
}
inline const Wire::EthAddr kVarpMac(0x0000, 0x5e00, 0x0101);
inline const Wire::EthAddr kBridgeMac = mac(0xb0);

inline KernelNetworkInfo::InterfaceState device(int ifindex, const char* name) {
  KernelNetworkInfo::InterfaceState s;
  s.ifindex = Wire::IfIndex(ifindex);
  s.name = Lum::String8(name);
  return s;
}

struct VarpSetup {
  VarpSetup() {
    Lum::Ptr<VtiStatus> vti = vtis_->vtiStatusIs(Wire::IntfId("Vxlan1"));
    vti->localVtepAddrIs(ip("10.0.0.1"));
    vti->vArpVtepAddrIs(ip("10.0.0.100"));
    vti->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(5010));
    vti->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    Lum::Ptr<VniToVlanMap> map = vniMaps_->vtiVniToVlanMapIs(Wire::IntfId("Vxlan1"));
    map->vniToVlanMapIs(Vni(5010), Bridging::VlanIdOrNone(10));
    map->vniToVlanMapIs(Vni(5020), Bridging::VlanIdOrNone(20));
    Lum::Ptr<BumVtepList> flood =
        hw_->bumStatus()->bumVtepListIs(MacVlanPair(Wire::EthAddr(), Bridging::VlanId(10)));
    for (const char* a : {"10.0.0.1", "10.0.0.100", "10.0.0.2", "10.0.0.3", "10.0.0.4"}) {
      flood->remoteVtepAddrIs(ip(a));
    }
    hw_->vxlanHwStatusIs(Wire::IntfId("Vxlan1"))->cpuSourcePortIdIs(HwPortId(0x21));
    caps_->vxlanTxRawSupportedIs(true);
    bridging_->bridgeMacAddrIs(kBridgeMac);
    varpMac_->varpVirtualMacIs(kVarpMac);
    ipStatus_->ipIntfStatusIs(Wire::IntfId("Vlan10"))
        ->activeAddrWithMaskIs(Wire::IpAddrWithMask::fromString("10.1.1.1/24"));
    kni_->interfaceIs(device(31, "vlan10"));
    kernel_.devices = {{"txraw", 7}};
    VirtualArpSm::Inputs in;
    in.bridgingConfig = bridging_;
    in.ipStatusDir = ipStatus_;
    in.fhrpVarpMacStatus = varpMac_;
    in.vtiStatusDir = vtis_;
    in.vxHwStatusDir = hw_;
    in.vniToVlanMaps = vniMaps_;
    in.kernelNetworkInfoRoot = kni_;
    in.vxBumStatus = hw_->bumStatus();
    in.vxAgentCounter = counters_;
    in.bridgingHwCapabilities = caps_;
    in.vxStatusDir = vxStatus_;
    in.l2rVarpIpMacTableCol = tables_;
    in.mlagStatus = mlag_;
    in.mlagConfig = mlagConfig_;
    sm_ = new VirtualArpSm(in);
    vti_ = sm_->vtiStatusSm(Wire::IntfId("Vxlan1"));
    vti_->udpPam()->modeIs(1);
    vti_->arpSyncUdpPam()->txDstIpAddrIs(ip("10.0.0.50"));  // the MLAG peer
    vti_->arpSyncUdpPam()->modeIs(3);
    vti_->rawTxPam()->enabledIs(true);
  }
  ~VarpSetup() { sm_->doPrepareToDie(); }

  TestSupport::VarpKernel kernel_;
  Lum::ScopedSysCalls guard_{kernel_};
  Lum::Ptr<VtiStatusDir> vtis_{new VtiStatusDir("vti")};
  Lum::Ptr<VniToVlanMaps> vniMaps_{new VniToVlanMaps("vniToVlanMaps")};
  Lum::Ptr<VxlanHwStatusDir> hw_{new VxlanHwStatusDir("hw")};
  Lum::Ptr<Bridging::HwCapabilities> caps_{new Bridging::HwCapabilities("caps")};
  Lum::Ptr<Bridging::Config> bridging_{new Bridging::Config("bridging")};
  Lum::Ptr<Ip::Status> ipStatus_{new Ip::Status("ip")};
  Lum::Ptr<Routing::Fhrp::VirtualRouterMacStatus> varpMac_{
      new Routing::Fhrp::VirtualRouterMacStatus("varpMac")};
  Lum::Ptr<VxlanStatusDir> vxStatus_{new VxlanStatusDir("vxStatus")};
  Lum::Ptr<VarpIpMacTableCol> tables_{new VarpIpMacTableCol("tables")};
  Lum::Ptr<KernelNetworkInfo::Root> kni_{new KernelNetworkInfo::Root("kni")};
  Lum::Ptr<Mlag::Status> mlag_{new Mlag::Status("mlag")};
  Lum::Ptr<Mlag::Config> mlagConfig_{new Mlag::Config("mlagConfig")};
  Lum::Ptr<VxlanAgentCounter> counters_{
      new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>())};
  Lum::Ptr<VirtualArpSm> sm_;
  Lum::Ptr<VirtualArpSm::LumVtiStatusSm> vti_;
};

}  // namespace Vxlan
