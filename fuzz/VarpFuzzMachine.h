// The virtual ARP machine the virtual ARP fuzz targets drive: one VTI (local VTEP
// 10.0.0.1, UDP port 4789, VLAN 10 on VNI 5010 flooding to 10.0.0.2), an IP interface
// Vlan10 (10.1.1.1/24) with its kernel device vlan10, the bridge MAC 02:00:00:00:00:b0, the virtual
// MAC 00:00:5e:00:01:01 and a controller's table that knows 10.1.1.5 under 02:00:00:00:00:0a; its
// PAMs open on a kernel that takes every send and accepts every neighbor write without any real
// socket.
#pragma once

#include <cstring>

#include "tests/varp/VarpKernel.h"
#include "varp/VirtualArpSm.h"

namespace VarpFuzz {

struct Machine {
  TestSupport::VarpKernel kernel;
  Lum::ScopedSysCalls guard{kernel};
  Lum::Ptr<Vxlan::VirtualArpSm> sm;
  Lum::Ptr<Vxlan::VirtualArpSm::LumVtiStatusSm> vti;

  Machine() {
    using namespace Vxlan;
    Lum::Ptr<VtiStatusDir> vtis(new VtiStatusDir("vti"));
    Lum::Ptr<VtiStatus> status = vtis->vtiStatusIs(Wire::IntfId("Vxlan1"));
    status->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
    status->vlanToVniMapIs(Bridging::VlanId(10), VniOrNone(5010));
    Lum::Ptr<VniToVlanMaps> maps(new VniToVlanMaps("vniToVlanMaps"));
    maps->vtiVniToVlanMapIs(Wire::IntfId("Vxlan1"))
        ->vniToVlanMapIs(Vni(5010), Bridging::VlanIdOrNone(10));
    Lum::Ptr<Bridging::Config> bridging(new Bridging::Config("bridging"));
    bridging->bridgeMacAddrIs(Wire::EthAddr(0x0200, 0, 0xb0));
    Lum::Ptr<VxlanHwStatusDir> hw(new VxlanHwStatusDir("hw"));
    hw->bumStatus()
        ->bumVtepListIs(MacVlanPair(Wire::EthAddr(), Bridging::VlanId(10)))
        ->remoteVtepAddrIs(Wire::IpAddr::fromString("10.0.0.2"));
    Lum::Ptr<Ip::Status> ip(new Ip::Status("ip"));
    ip->ipIntfStatusIs(Wire::IntfId("Vlan10"))
        ->activeAddrWithMaskIs(Wire::IpAddrWithMask::fromString("10.1.1.1/24"));
    Lum::Ptr<KernelNetworkInfo::Root> kni(new KernelNetworkInfo::Root("kni"));
    KernelNetworkInfo::InterfaceState vlan10;
    vlan10.ifindex = Wire::IfIndex(31);
    vlan10.name = Lum::String8("vlan10");
    kni->interfaceIs(vlan10);
    Lum::Ptr<Routing::Fhrp::VirtualRouterMacStatus> varpMac(
        new Routing::Fhrp::VirtualRouterMacStatus("varpMac"));
    varpMac->varpVirtualMacIs(Wire::EthAddr(0x0000, 0x5e00, 0x0101));
    Lum::Ptr<VarpIpMacTableCol> tables(new VarpIpMacTableCol("tables"));
    tables->varpIpMacTableIs("t")->varpIpMacEntryIs(
        VarpIpMacEntry(Wire::IpGenAddr(Wire::IpAddr::fromString("10.1.1.5")), VniOrNone(5010),
                       Wire::EthAddr(0x0200, 0, 0x0a)));
    VirtualArpSm::Inputs in;
    in.bridgingConfig = bridging;
    in.vniToVlanMaps = maps;
    in.ipStatusDir = ip;
    in.fhrpVarpMacStatus = varpMac;
    in.vtiStatusDir = vtis;
    in.vxHwStatusDir = hw;
    in.vxBumStatus = hw->bumStatus();
    in.kernelNetworkInfoRoot = kni;
    in.vxAgentCounter = new VxlanAgentCounter("counter", std::make_unique<MemoryCounterStorage>());
    in.l2rVarpIpMacTableCol = tables;
    sm = new VirtualArpSm(in);
    vti = sm->vtiStatusSm(Wire::IntfId("Vxlan1"));
    vti->udpPam()->modeIs(1);
  }

  void forget() {
    kernel.sent.clear();
    kernel.writes.clear();
    sm->arpRewritePendingListDelAll();
  }

  // The input as a received packet: its bytes end where the packet's storage ends, so
  // a read past them leaves the allocation and the address sanitizer sees it.
  static Lum::Ptr<Wire::Pkt> packet(const uint8_t* data, size_t size) {
    Lum::Ptr<Wire::Pkt> p = Wire::globalPktManager().newPkt();
    if (!p || size > p->headRoom()) return nullptr;
    p->newSharedHeadData(static_cast<uint32_t>(size));
    if (size) std::memcpy(p->data(), data, size);
    return p;
  }
};

}  // namespace VarpFuzz
