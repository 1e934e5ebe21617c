#include "platform/statehub/AgentCommand.h"

#include "platform/trace/Trace.h"

namespace Agent {

namespace {
Lum::TraceFacility& trace = Lum::traceFacility("AgentCommand");
}  // namespace

AgentCommandRequestDirSm::AgentCommandRequestDirSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                                                   const Lum::Ptr<Lum::Dir>& requestDir) {
  lumFwkActivityIs(activity);
  notifierIs(requestDir);
  isRegisteredNotifieeIs(true);
}

void AgentCommandRequestDirSm::onNotifier() {
  // Requests that were entered before the machine existed are handled like new ones.
  for (const Lum::Name& name : notifier()->entityNames()) handleRequest(name);
}

void AgentCommandRequestDirSm::onEntity(const Lum::Name& name) {
  handleRequest(name);
}

void AgentCommandRequestDirSm::handleRequest(const Lum::Name& name) {
  Lum::Ptr<Lum::Dir> dir = notifier();
  Lum::Ptr<AgentCommandRequest> request =
      Lum::ptrCast<AgentCommandRequest>(dir ? dir->entity(name) : nullptr);
  if (!request) return;  // removed, or not a request
  // Out of the directory first: a callback that enters further requests must not see
  // this one again.
  dir->entityDel(name);
  if (status_) {
    status_->requestsIs(status_->requests() + 1);
    status_->lastRequestIs(name);
  }
  if (!callback_ || request->type() != callback_->commandType()) {
    LUM_TRACE(trace, 1, "request " << name << " of type " << request->type() << " not handled");
    return;
  }
  if (status_) status_->handledIs(status_->handled() + 1);
  callback_->handleCommand(request->socket(), request->command());
}

}  // namespace Agent
