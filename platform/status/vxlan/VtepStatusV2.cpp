#include "platform/status/vxlan/VtepStatusV2.h"

namespace VxlanController {

LUM_ENTITY_TYPE(BfdPeerStatusV2, VXLAN_CONTROLLER_BFD_PEER_STATUS_V2_ATTRS)
LUM_ENTITY_TYPE(VtepStatusV2, VXLAN_CONTROLLER_VTEP_STATUS_V2_ATTRS)
LUM_ENTITY_TYPE(VtepStatusDirV2, VXLAN_CONTROLLER_VTEP_STATUS_DIR_V2_ATTRS,
                .constructor({"name"}, &Lum::newByName<VtepStatusDirV2>))

BfdPeerStatusV2::BfdPeerStatusV2(Wire::IpAddr peer)
    : Entity(Lum::Name(Lum::toText(peer))), peer_(peer) {}

}  // namespace VxlanController
