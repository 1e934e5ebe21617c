// Every status entity that the agent reads or writes, for code that needs them all
// (the agent object, the host's tests). Other code includes what it uses.
#pragma once

#include "platform/status/AgentCommandRequest.h"
#include "platform/status/AllVrfStatusLocal.h"
#include "platform/status/BridgingConfig.h"
#include "platform/status/BridgingHwCapabilities.h"
#include "platform/status/BumStatus.h"
#include "platform/status/EthIntfStatusDir.h"
#include "platform/status/FdbStatus.h"
#include "platform/status/FhrpStatusV4.h"
#include "platform/status/IgmpApplicationConfig.h"
#include "platform/status/IpStatus.h"
#include "platform/status/MlagConfig.h"
#include "platform/status/MlagStatus.h"
#include "platform/status/PimApplicationConfig.h"
#include "platform/status/VarpIpMacTable.h"
#include "platform/status/VirtualRouterMacStatus.h"
#include "platform/status/VniToVlanMaps.h"
#include "platform/status/VtepStatusV2.h"
#include "platform/status/VtiStatusDir.h"
#include "platform/status/VxlanHwStatus.h"
#include "platform/status/VxlanStatus.h"
