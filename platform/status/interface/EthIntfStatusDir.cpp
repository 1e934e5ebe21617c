#include "platform/status/interface/EthIntfStatusDir.h"

namespace Interface {

LUM_ENTITY_TYPE(EthIntfStatus, INTERFACE_ETH_INTF_STATUS_ATTRS)
LUM_ENTITY_TYPE(EthLagIntfStatus, INTERFACE_ETH_LAG_INTF_STATUS_ATTRS)

Lum::Ptr<EthIntfStatus> EthIntfStatus::lumNewElement(const Wire::IntfId& id) {
  if (Wire::PortChannelIntfId::isPortChannelIntfId(id)) return new EthLagIntfStatus(id);
  return new EthIntfStatus(id);
}

LUM_ENTITY_TYPE(EthIntfStatusDir, INTERFACE_ETH_INTF_STATUS_DIR_ATTRS,
                .constructor({"name"}, &Lum::newByName<EthIntfStatusDir>))

}  // namespace Interface
