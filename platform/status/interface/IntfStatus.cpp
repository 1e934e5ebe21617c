#include "platform/status/interface/IntfStatus.h"

namespace Interface {

const Lum::TypeInfo& IntfStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Interface::IntfStatus", "Lum::Entity")
        .attribute("deviceName", kDeviceName,
                   Lum::textAttr<&IntfStatus::deviceName, &IntfStatus::deviceNameIs>())
        .attribute("operStatus", kOperStatus,
                   Lum::textAttr<&IntfStatus::operStatus, &IntfStatus::operStatusIs>())
        .attribute("active", kActive, Lum::textAttr<&IntfStatus::active, &IntfStatus::activeIs>()));

}  // namespace Interface
