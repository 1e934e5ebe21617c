#include "platform/status/vxlan/VtiStatus.h"

namespace Vxlan {

const Lum::TypeInfo& VtiStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Vxlan::VtiStatus", "Interface::IntfStatus")
        .attribute("floodMcastGrp", kFloodMcastGrp,
                   Lum::textAttr<&VtiStatus::floodMcastGrp, &VtiStatus::floodMcastGrpIs>())
        .attribute("mcastGrpDecap", kMcastGrpDecap,
                   Lum::mapAttr<Lum::reader(&VtiStatus::mcastGrpDecap), &VtiStatus::mcastGrpDecapIs,
                                &VtiStatus::mcastGrpDecapDel>())
        .attribute("localVtepAddr", kLocalVtepAddr,
                   Lum::textAttr<&VtiStatus::localVtepAddr, &VtiStatus::localVtepAddrIs>())
        .attribute("vArpVtepAddr", kVArpVtepAddr,
                   Lum::textAttr<&VtiStatus::vArpVtepAddr, &VtiStatus::vArpVtepAddrIs>())
        .attribute("srcIpIntf", kSrcIpIntf,
                   Lum::textAttr<&VtiStatus::srcIpIntf, &VtiStatus::srcIpIntfIs>())
        .attribute("srcIntfKernelName", kSrcIntfKernelName,
                   Lum::textAttr<&VtiStatus::srcIntfKernelName, &VtiStatus::srcIntfKernelNameIs>())
        .attribute("vlanToVniMap", kVlanToVniMap,
                   Lum::mapAttr<Lum::reader(&VtiStatus::vlanToVniMap), &VtiStatus::vlanToVniMapIs,
                                &VtiStatus::vlanToVniMapDel>())
        .attribute("udpPort", kUdpPort, Lum::textAttr<&VtiStatus::udpPort, &VtiStatus::udpPortIs>())
        .attribute("ttl", kTtl, Lum::textAttr<&VtiStatus::ttl, &VtiStatus::ttlIs>())
        .attribute(
            "controllerClientMode", kControllerClientMode,
            Lum::textAttr<&VtiStatus::controllerClientMode, &VtiStatus::controllerClientModeIs>())
        .attribute("controllerClientL3Mode", kControllerClientL3Mode,
                   Lum::textAttr<&VtiStatus::controllerClientL3Mode,
                                 &VtiStatus::controllerClientL3ModeIs>()));

}  // namespace Vxlan
