#include "platform/statehub/ControlRequests.h"
#include "platform/trace/Trace.h"

#include "platform/core/Dir.h"
#include "platform/statehub/DocumentText.h"
#include "platform/statehub/EntityManager.h"
#include "platform/status/agent/AgentCommandRequest.h"

namespace Statehub {

using nlohmann::json;

namespace {

json failure(std::string_view text) {
  return json{{"ok", false}, {"error", text}};
}

const std::string& stringField(const json& req, const char* name) {
  auto it = req.find(name);
  if (it == req.end() || !it->is_string()) {
    throw Lum::RangeException(std::string("the request needs a string \"") + name + "\"");
  }
  return it->get_ref<const std::string&>();
}

}  // namespace

json ControlRequests::answerOf(std::string_view line, int requester) {
  json req;
  try {
    req = DocumentText::parse(line, "malformed request");
  } catch (const StateError& e) {
    return failure(e.what());
  }
  if (!req.is_object()) return failure("a request is a JSON object");
  try {
    const std::string& op = stringField(req, "op");
    if (op == "apply") {
      auto state = req.find("state");
      if (state == req.end()) return failure("the request needs a \"state\"");
      em_->stateIs(*state);
      json ok{{"ok", true}};
      json pending = json::array();
      for (const auto& [path, content] : state->items()) {
        if (!em_->isMounted(path)) pending.push_back(EntityManager::normalizedPath(path));
      }
      if (!pending.empty()) ok["pending"] = std::move(pending);
      return ok;
    }
    if (op == "get") return json{{"ok", true}, {"state", em_->stateOf(stringField(req, "path"))}};
    if (op == "command") return command(req, requester);
    if (op == "trace") {
      Lum::traceSpecIs(stringField(req, "set"));
      return json{{"ok", true}};
    }
    if (op == "query") {
      auto args = req.find("args");
      if (args != req.end() && !args->is_object()) return failure("\"args\" is a JSON object");
      const json none = json::object();
      return json{
          {"ok", true},
          {"answer", em_->answerOf(stringField(req, "name"), args == req.end() ? none : *args)}};
    }
    if (op == "list") {
      return json{
          {"ok", true}, {"paths", em_->mountPaths()}, {"pending", em_->pendingStatePaths()}};
    }
    return failure("unknown op \"" + op + "\"");
  } catch (const std::exception& e) {
    return failure(e.what());
  }
}

json ControlRequests::command(const json& req, int requester) {
  const std::string& path = stringField(req, "path");
  const std::string& type = stringField(req, "type");
  const std::string& text = stringField(req, "command");
  Lum::Ptr<Lum::Dir> dir = Lum::ptrCast<Lum::Dir>(em_->getEntity(path));
  if (!dir) throw StateError(path, "not a Lum::Dir");
  // Naming the type through its class also links its registration into the program.
  const Lum::TypeInfo& requestType = Agent::AgentCommandRequest::kType;
  std::string id;
  do {
    id = std::to_string(++lastRequestId_);
  } while (dir->entity(Lum::Name(id)));
  Lum::Ptr<Lum::Entity> request = requestType.construct({{"name", id}});
  Lum::GenericRef ref(request);
  ref.attributeIs("type", type);
  ref.attributeIs("command", text);
  ref.attributeIs("socket", std::to_string(requester));
  dir->entityIs(request);
  return json{{"ok", true}, {"request", id}};
}

}  // namespace Statehub
