// The entities of the command channel: a request that another program enters in an
// agent's request directory, and the status that the agent's command machine reports.
#pragma once

#include <cstdint>

#include "platform/core/Attributes.h"
#include "platform/core/String8.h"

namespace Agent {

// One command: its type (which callback takes it), its text, and the number of the
// socket of the requester, which the handler may trace. Named by a request id. The id
// of `type` is kCommandType: kType is the registered type.
#define AGENT_COMMAND_REQUEST_ATTRS(X)          \
  X(VALUE, CommandType, type, Lum::String8, {}) \
  X(VALUE, Command, command, Lum::String8, {})  \
  X(VALUE, Socket, socket, uint32_t, {0})

class AgentCommandRequest : public Lum::Entity {
  LUM_ENTITY(Agent::AgentCommandRequest, Lum::Entity, AGENT_COMMAND_REQUEST_ATTRS)

  explicit AgentCommandRequest(const Lum::Name& id) : Entity(id) {}
};

// What the command machine has done: how many requests it took and how many found a
// callback of their type. Only the machine writes it.
#define AGENT_COMMAND_REQUEST_STATUS_ATTRS(X)    \
  X(RO_VALUE, Requests, requests, uint64_t, {0}) \
  X(RO_VALUE, Handled, handled, uint64_t, {0})   \
  X(RO_VALUE, LastRequest, lastRequest, Lum::Name, {})

class AgentCommandRequestStatus : public Lum::Entity {
  LUM_ENTITY(Agent::AgentCommandRequestStatus, Lum::Entity, AGENT_COMMAND_REQUEST_STATUS_ATTRS)

  explicit AgentCommandRequestStatus(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Agent
