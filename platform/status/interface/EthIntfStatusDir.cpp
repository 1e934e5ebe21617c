#include "platform/status/interface/EthIntfStatusDir.h"

namespace Interface {

LUM_ENTITY_TYPE(EthIntfStatus, INTERFACE_ETH_INTF_STATUS_ATTRS)
LUM_ENTITY_TYPE(EthIntfStatusDir, INTERFACE_ETH_INTF_STATUS_DIR_ATTRS,
                .constructor({"name"}, &Lum::newByName<EthIntfStatusDir>))

}  // namespace Interface
