// Every status entity that the agent reads or writes, for code that needs them all
// (the agent object, the host's tests). Other code includes what it uses.
#pragma once

#include "platform/status/agent/AgentCommandRequest.h"
#include "platform/status/bridging/BridgingConfig.h"
#include "platform/status/bridging/BridgingHwCapabilities.h"
#include "platform/status/interface/EthIntfStatusDir.h"
#include "platform/status/ip/AllVrfStatusLocal.h"
#include "platform/status/ip/IpStatus.h"
#include "platform/status/mlag/MlagConfig.h"
#include "platform/status/mlag/MlagStatus.h"
#include "platform/status/routing/FhrpStatusV4.h"
#include "platform/status/routing/IgmpApplicationConfig.h"
#include "platform/status/routing/PimApplicationConfig.h"
#include "platform/status/routing/VirtualRouterMacStatus.h"
#include "platform/status/vxlan/BumStatus.h"
#include "platform/status/vxlan/FdbStatus.h"
#include "platform/status/vxlan/VarpIpMacTable.h"
#include "platform/status/vxlan/VniToVlanMaps.h"
#include "platform/status/vxlan/VtepStatusV2.h"
#include "platform/status/vxlan/VtiStatusDir.h"
#include "platform/status/vxlan/VxlanHwStatus.h"
#include "platform/status/vxlan/VxlanStatus.h"
