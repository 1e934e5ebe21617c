// Statehub::ControlRequests: what the control socket does with one request line, apart
// from the socket, so that the server stays about connections and the requests can be
// exercised (and fuzzed) without one.
//
// A request is one JSON object on one line; its answer is one JSON object:
//   {"op":"apply","state":{"<path>":{...}}}   -> {"ok":true[,"pending":[paths]]}
//   {"op":"get","path":"<path>"}              -> {"ok":true,"state":{...}}
//   {"op":"command","path":"<dir>","type":"vxlan","command":"clear counters"}
//                                              -> {"ok":true,"request":"<id>"}
//   {"op":"list"}                             -> {"ok":true,"paths":[mounted],"pending":[kept]}
//   {"op":"trace","set":"<facility>/<levels>,..."}  -> {"ok":true}   (the trace's levels)
//   {"op":"query","name":"<query>"[,"args":{...}]}  -> {"ok":true,"answer":<JSON>}
//       a question the agent registered (EntityManager::queryIs)
// Anything refused is {"ok":false,"error":"<why>"}; nothing is half applied.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>

namespace Statehub {

class EntityManager;

class ControlRequests {
 public:
  explicit ControlRequests(EntityManager& em) : em_(&em) {}

  // The answer to one request line. Never throws for anything the line holds;
  // `requester` is the client's descriptor number, handed to command callbacks.
  nlohmann::json answerOf(std::string_view line, int requester);

 private:
  nlohmann::json command(const nlohmann::json& req, int requester);

  EntityManager* em_;
  uint64_t lastRequestId_ = 0;
};

}  // namespace Statehub
