#include "platform/status/agent/AgentCommandRequest.h"

namespace Agent {

const Lum::TypeInfo& AgentCommandRequest::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Agent::AgentCommandRequest", "Lum::Entity")
        .attribute("type", kCommandType,
                   Lum::textAttr<&AgentCommandRequest::type, &AgentCommandRequest::typeIs>())
        .attribute("command", kCommand,
                   Lum::textAttr<&AgentCommandRequest::command, &AgentCommandRequest::commandIs>())
        .attribute("socket", kSocket,
                   Lum::textAttr<&AgentCommandRequest::socket, &AgentCommandRequest::socketIs>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new AgentCommandRequest(Lum::Name(a[0].second)));
        }));

const Lum::TypeInfo& AgentCommandRequestStatus::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Agent::AgentCommandRequestStatus", "Lum::Entity")
        .attribute("requests", kRequests, Lum::textAttr<&AgentCommandRequestStatus::requests>())
        .attribute("handled", kHandled, Lum::textAttr<&AgentCommandRequestStatus::handled>())
        .attribute("lastRequest", kLastRequest,
                   Lum::textAttr<&AgentCommandRequestStatus::lastRequest>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new AgentCommandRequestStatus(Lum::Name(a[0].second)));
        }));

}  // namespace Agent
