// The command channel of an agent.
//
// Other programs enter an Agent::AgentCommandRequest (type, command text, requester's
// socket) into the agent's request directory, a Lum::Dir. The agent's
// AgentCommandRequestDirSm watches that directory: each new request whose type is
// that of the registered AgentCommandCallback goes to the callback's handleCommand(),
// and the request is then taken out of the directory so that it is handled once.
// Requests of another type, and requests that come while no callback is registered,
// are taken out unhandled. The machine counts what it took and handled in the
// Agent::AgentCommandRequestStatus it is given.
#pragma once

#include <cstdint>

#include "platform/core/Dir.h"
#include "platform/status/agent/AgentCommandRequest.h"

namespace Agent {

class AgentCommandCallback : public Lum::VFPtrInterface {
 public:
  const Lum::Name& name() const { return name_; }
  const Lum::String8& commandType() const { return commandType_; }
  // `socket` is the requester's socket number, for traces only.
  virtual void handleCommand(uint32_t socket, const Lum::String8& command) = 0;

 protected:
  AgentCommandCallback(const Lum::Name& name, const Lum::String8& commandType)
      : name_(name), commandType_(commandType) {}

 private:
  Lum::Name name_;
  Lum::String8 commandType_;
};

class AgentCommandRequestDirSm : public Lum::Dir::Notifiee {
 public:
  AgentCommandRequestDirSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                           const Lum::Ptr<Lum::Dir>& requestDir);

  const Lum::Ptr<AgentCommandRequestStatus>& status() const { return status_; }
  void statusIs(const Lum::Ptr<AgentCommandRequestStatus>& s) { status_ = s; }
  const Lum::Ptr<AgentCommandCallback>& agentCommandCallback() const { return callback_; }
  void agentCommandCallbackIs(const Lum::Ptr<AgentCommandCallback>& c) { callback_ = c; }

  void onEntity(const Lum::Name& name) override;
  void onNotifier() override;

 private:
  void handleRequest(const Lum::Name& name);

  Lum::Ptr<AgentCommandRequestStatus> status_;
  Lum::Ptr<AgentCommandCallback> callback_;
};

}  // namespace Agent
