// The entities of the command channel: a request that another program enters in an
// agent's request directory, and the status that the agent's command machine reports.
#pragma once

#include <cstdint>

#include "platform/core/Entity.h"
#include "platform/core/String8.h"

namespace Agent {

// One command: its type (which callback takes it), its text, and the number of the
// socket of the requester, which the handler may trace. Named by a request id.
class AgentCommandRequest : public Lum::Entity {
 public:
  enum : int { kCommandType = Entity::kAttrEnd, kCommand, kSocket, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<AgentCommandRequest> {};

  explicit AgentCommandRequest(const Lum::Name& id) : Entity(id) {}

  const Lum::String8& type() const { return type_; }
  void typeIs(const Lum::String8& v) { type_ = v; }
  const Lum::String8& command() const { return command_; }
  void commandIs(const Lum::String8& v) { command_ = v; }
  uint32_t socket() const { return socket_; }
  void socketIs(uint32_t v) { socket_ = v; }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::String8 type_;
  Lum::String8 command_;
  uint32_t socket_ = 0;
};

// What the command machine has done: how many requests it took and how many found a
// callback of their type.
class AgentCommandRequestStatus : public Lum::Entity {
 public:
  enum : int { kRequests = Entity::kAttrEnd, kHandled, kLastRequest, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<AgentCommandRequestStatus> {
   public:
    virtual void onRequests() {}
    virtual void onHandled() {}
    virtual void onLastRequest() {}
  };

  explicit AgentCommandRequestStatus(const Lum::Name& name) : Entity(name) {}

  uint64_t requests() const { return requests_; }
  void requestsIs(uint64_t v) { attrIs<&NotifieeConst::onRequests>(requests_, v, kRequests); }
  uint64_t handled() const { return handled_; }
  void handledIs(uint64_t v) { attrIs<&NotifieeConst::onHandled>(handled_, v, kHandled); }
  const Lum::Name& lastRequest() const { return lastRequest_; }
  void lastRequestIs(const Lum::Name& v) {
    attrIs<&NotifieeConst::onLastRequest>(lastRequest_, v, kLastRequest);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  uint64_t requests_ = 0;
  uint64_t handled_ = 0;
  Lum::Name lastRequest_;
};

}  // namespace Agent
