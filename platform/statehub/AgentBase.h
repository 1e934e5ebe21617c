// AgentBase::CAgent: the base of an agent that the agent host starts.
//
// The host builds the agent by its registered type name, gives it the entity manager
// of the state database and its cell path, and calls doInit(). The agent declares
// its mounts there; when they are mounted the state database calls
// doMountsComplete() on the event loop. An agent has no loop and no thread of its
// own.
#pragma once

#include "platform/core/Entity.h"
#include "platform/core/String8.h"
#include "platform/statehub/EntityManager.h"

namespace AgentBase {

class CAgent : public Lum::Entity, public Statehub::Mounter {
 public:
  const Lum::Ptr<Statehub::EntityManager>& entityManager() const { return entityManager_; }
  void entityManagerIs(const Lum::Ptr<Statehub::EntityManager>& em) { entityManager_ = em; }
  // The path of this switch's own cell, under which per-agent state lives.
  const Lum::String8& cellPath() const { return cellPath_; }
  void cellPathIs(const Lum::String8& p) { cellPath_ = p; }

  virtual void doInit() = 0;
  void doMountsComplete(Statehub::MountStatus status, Statehub::EntityManager& em) override = 0;

 protected:
  explicit CAgent(const Lum::Name& name) : Entity(name) {}

 private:
  Lum::Ptr<Statehub::EntityManager> entityManager_;
  Lum::String8 cellPath_ = "cell/1";
};

}  // namespace AgentBase
