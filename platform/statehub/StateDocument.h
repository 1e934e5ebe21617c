// Statehub::StateDocument: entities described as JSON, by attribute name, through the
// generic interface of the type registry. The embedded state database uses it for its
// state files and its control socket.
//
// The description of one entity is an object whose keys are attribute names:
//   plain attribute        "udpPort": 4789            string, number or bool; numbers
//                                                     and bools are written as their
//                                                     decimal text and "true"/"false"
//   map attribute          "vlanToVniMap": {"10": 5010, "20": null}   null deletes
//   collection attribute   "vtiStatus": {"Vxlan1": {...}, "Vxlan2": null}
//                                                     a missing element is created
//   child attribute        "settings": {...}         the owned entity
//
// Writing is done in two passes so that a description is taken whole or not at all:
// check() reads every key and value through the checks of the type registry and walks
// the element types without writing; apply() writes. The registry's checks refuse
// exactly what its writers refuse (an empty collection key, a map entry the entity
// refuses, a number outside a closed enumeration), so a setter that refuses what its
// check accepted, the only way apply() can stop half-way, is a fault of the type's
// registration.
//
// Errors are StateError, whose text names the path of the refused item and the reason:
//   "interface/status/eth/vxlan/vtiStatus/Vxlan1/udpPort: value 70000 out of range"
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "platform/core/Entity.h"
#include "platform/core/Exception.h"

namespace Statehub {

class StateError : public Lum::Exception {
 public:
  // "<path>: <reason>"
  StateError(std::string_view path, std::string_view reason);
};

class StateDocument {
 public:
  // Checks the description `content` of an entity of `type` at `path` without writing.
  // `entity` is the entity as it is now, or null when it does not exist yet; when
  // given, its own type, its elements and its children are used instead of the
  // declared ones.
  static void check(const nlohmann::json& content, const Lum::TypeInfo& type,
                    const Lum::Entity* entity, const std::string& path);
  // Writes a checked description into `entity`. Reactors see each change as it is made.
  static void apply(const nlohmann::json& content, Lum::Entity& entity, const std::string& path);
  // The description of `entity`: plain attributes as text, maps and collections as
  // objects, children as objects. The name is left out: it is the last part of the path.
  static nlohmann::json of(const Lum::Entity& entity);
  // Merges `from` into `into`: objects key by key, anything else replaced. Nulls are
  // kept, since they stand for deletions still to be made.
  static void merge(nlohmann::json& into, const nlohmann::json& from);
  // The text a JSON scalar stands for; throws StateError for null, objects and arrays.
  static std::string text(const nlohmann::json& value, const std::string& path);
};

}  // namespace Statehub
