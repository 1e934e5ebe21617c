#include "platform/status/agent/AgentCommandRequest.h"

namespace Agent {

LUM_ENTITY_TYPE(AgentCommandRequest, AGENT_COMMAND_REQUEST_ATTRS,
                .constructor({"name"}, &Lum::newByName<AgentCommandRequest>))
LUM_ENTITY_TYPE(AgentCommandRequestStatus, AGENT_COMMAND_REQUEST_STATUS_ATTRS,
                .constructor({"name"}, &Lum::newByName<AgentCommandRequestStatus>))

}  // namespace Agent
