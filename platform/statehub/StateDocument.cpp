#include "platform/statehub/StateDocument.h"

#include <cmath>

namespace Statehub {

using nlohmann::json;

StateError::StateError(std::string_view path, std::string_view reason)
    : Lum::Exception(std::string(path) + ": " + std::string(reason), Lum::ExceptionId::range) {}

namespace {

std::string qualified(const Lum::TypeInfo& type, std::string_view attr) {
  return type.fullName() + "::" + std::string(attr);
}

void requireObject(const json& v, const std::string& path, std::string_view what) {
  if (!v.is_object()) {
    throw StateError(
        path, std::string(what) + " is described by an object, not " + std::string(v.type_name()));
  }
}

// Runs a check or a write of the generic interface, turning what it throws into a
// StateError at `path`. StateErrors of nested levels already carry their own path.
template <class F>
void at(const std::string& path, F&& f) {
  try {
    f();
  } catch (const StateError&) {
    throw;
  } catch (const std::exception& e) {
    throw StateError(path, e.what());
  }
}

// The type a nested description is checked against: the element's own when it
// exists, else the declared element type of the attribute.
const Lum::TypeInfo& nestedType(const Lum::TextAccess& access, const Lum::Entity* existing,
                                const Lum::TypeInfo& owner, std::string_view attr,
                                const std::string& path) {
  if (existing) return existing->fwkType();
  const Lum::TypeInfo* t = access.elementType ? access.elementType() : nullptr;
  if (!t) throw StateError(path, "the element type of " + qualified(owner, attr) + " is unknown");
  return *t;
}

// Checks the key of one entry of a map or collection; a null entry asks for a
// deletion, which the attribute must allow. Returns true for such a deletion.
bool checkEntryKey(const Lum::AttributeInfo& a, const Lum::TypeInfo& type, const std::string& key,
                   const json& v, const std::string& pk) {
  if (a.access.checkKey) at(pk, [&] { a.access.checkKey(key); });
  if (!v.is_null()) return false;
  if (!a.access.entryDel) throw StateError(pk, qualified(type, a.name) + " is read-only");
  return true;
}

void checkAttribute(const Lum::AttributeInfo& a, const Lum::TypeInfo& type,
                    const Lum::Entity* entity, const json& value, const std::string& p) {
  const Lum::TextAccess& acc = a.access;
  switch (acc.kind) {
    case Lum::AttrKind::none:
      throw StateError(p, qualified(type, a.name) + " has no text form");
    case Lum::AttrKind::value: {
      if (!acc.set) throw StateError(p, qualified(type, a.name) + " is read-only");
      const std::string t = StateDocument::text(value, p);
      if (acc.checkValue) at(p, [&] { acc.checkValue(t); });
      return;
    }
    case Lum::AttrKind::map:
      requireObject(value, p, "a map");
      // Named rather than bound: lambdas below capture the key, and a structured
      // binding cannot be captured by every compiler we build with.
      for (const auto& item : value.items()) {
        const std::string& key = item.key();
        const nlohmann::json& v = item.value();
        const std::string pk = p + "/" + key;
        if (checkEntryKey(a, type, key, v, pk)) continue;
        if (!acc.entryIs) throw StateError(pk, qualified(type, a.name) + " is read-only");
        const std::string t = StateDocument::text(v, pk);
        if (acc.checkEntry) at(pk, [&] { acc.checkEntry(key, t); });
      }
      return;
    case Lum::AttrKind::collection:
      requireObject(value, p, "a collection");
      for (const auto& item : value.items()) {
        const std::string& key = item.key();
        const nlohmann::json& v = item.value();
        const std::string pk = p + "/" + key;
        if (checkEntryKey(a, type, key, v, pk)) continue;
        Lum::Ptr<Lum::Entity> elem;
        if (entity && acc.element) at(pk, [&] { elem = acc.element(*entity, key); });
        if (!elem && !acc.entryIs) {
          throw StateError(
              pk, "no such element, and " + qualified(type, a.name) + " does not create elements");
        }
        StateDocument::check(v, nestedType(acc, elem.ptr(), type, a.name, pk), elem.ptr(), pk);
      }
      return;
    case Lum::AttrKind::child: {
      requireObject(value, p, "an owned entity");
      Lum::Ptr<Lum::Entity> child;
      if (entity && acc.child) {
        child = acc.child(*entity);
        if (!child) throw StateError(p, qualified(type, a.name) + " is empty");
      }
      StateDocument::check(value, nestedType(acc, child.ptr(), type, a.name, p), child.ptr(), p);
      return;
    }
  }
}

void applyAttribute(const Lum::AttributeInfo& a, Lum::Entity& e, const json& value,
                    const std::string& p) {
  const Lum::TextAccess& acc = a.access;
  switch (acc.kind) {
    case Lum::AttrKind::none:
      return;
    case Lum::AttrKind::value: {
      const std::string t = StateDocument::text(value, p);
      at(p, [&] { acc.set(e, t); });
      return;
    }
    case Lum::AttrKind::map:
      for (const auto& item : value.items()) {
        const std::string& key = item.key();
        const nlohmann::json& v = item.value();
        const std::string pk = p + "/" + key;
        if (v.is_null()) {
          at(pk, [&] { acc.entryDel(e, key); });
        } else {
          const std::string t = StateDocument::text(v, pk);
          at(pk, [&] { acc.entryIs(e, key, t); });
        }
      }
      return;
    case Lum::AttrKind::collection:
      for (const auto& item : value.items()) {
        const std::string& key = item.key();
        const nlohmann::json& v = item.value();
        const std::string pk = p + "/" + key;
        if (v.is_null()) {
          at(pk, [&] { acc.entryDel(e, key); });
          continue;
        }
        Lum::Ptr<Lum::Entity> elem;
        at(pk, [&] {
          elem = acc.element(e, key);
          if (!elem) {
            acc.entryIs(e, key, "");
            elem = acc.element(e, key);
          }
        });
        // A reactor of the creation may have removed the element again.
        if (!elem) throw StateError(pk, "the element went away while it was being written");
        StateDocument::apply(v, *elem, pk);
      }
      return;
    case Lum::AttrKind::child: {
      Lum::Ptr<Lum::Entity> child = acc.child(e);
      if (!child) throw StateError(p, qualified(e.fwkType(), a.name) + " is empty");
      StateDocument::apply(value, *child, p);
      return;
    }
  }
}

}  // namespace

void StateDocument::check(const json& content, const Lum::TypeInfo& type, const Lum::Entity* entity,
                          const std::string& path) {
  requireObject(content, path, "an entity");
  const Lum::TypeInfo& t = entity ? entity->fwkType() : type;
  for (const auto& [name, value] : content.items()) {
    const std::string p = path + "/" + name;
    const Lum::AttributeInfo* a = t.attribute(name);
    if (!a) throw StateError(p, "no attribute " + name + " in " + t.fullName());
    checkAttribute(*a, t, entity, value, p);
  }
}

void StateDocument::apply(const json& content, Lum::Entity& entity, const std::string& path) {
  // The entity's reactors may drop the last outside reference while they react.
  Lum::KeepAlive keep(&entity);
  for (const auto& [name, value] : content.items()) {
    const Lum::AttributeInfo* a = entity.fwkType().attribute(name);
    if (!a) throw StateError(path + "/" + name, "no attribute " + name);
    applyAttribute(*a, entity, value, path + "/" + name);
  }
}

namespace {

// A value's text as JSON of its kind: a number or boolean text that does not read as
// one (a type's own text form) stays a string rather than being lost.
json typed(std::string text, Lum::TextKind kind) {
  if (kind == Lum::TextKind::boolean && (text == "true" || text == "false")) return text == "true";
  if (kind == Lum::TextKind::number && !text.empty()) {
    json n = json::parse(text, nullptr, false);
    if (n.is_number()) return n;
  }
  return text;
}

}  // namespace

json StateDocument::of(const Lum::Entity& e) {
  json out = json::object();
  for (const Lum::TypeInfo* t = &e.fwkType(); t; t = t->base()) {
    for (const Lum::AttributeInfo& a : t->ownAttributes()) {
      // A derived type's attribute hides a base attribute of the same name.
      if (a.id == Lum::Entity::kAttrName || out.contains(a.name)) continue;
      const Lum::TextAccess& acc = a.access;
      switch (acc.kind) {
        case Lum::AttrKind::none:
          break;
        case Lum::AttrKind::value:
          out[a.name] = typed(acc.get(e), acc.valueKind);
          break;
        case Lum::AttrKind::map: {
          json m = json::object();
          for (const std::string& k : acc.keys(e)) m[k] = typed(acc.entry(e, k), acc.valueKind);
          out[a.name] = std::move(m);
          break;
        }
        case Lum::AttrKind::collection: {
          json c = json::object();
          for (const std::string& k : acc.keys(e)) {
            if (Lum::Ptr<Lum::Entity> elem = acc.element(e, k)) c[k] = of(*elem);
          }
          out[a.name] = std::move(c);
          break;
        }
        case Lum::AttrKind::child: {
          Lum::Ptr<Lum::Entity> child = acc.child(e);
          out[a.name] = child ? of(*child) : json(nullptr);
          break;
        }
      }
    }
  }
  return out;
}

void StateDocument::merge(json& into, const json& from) {
  if (!into.is_object() || !from.is_object()) {
    into = from;
    return;
  }
  for (const auto& [key, v] : from.items()) {
    auto it = into.find(key);
    if (it != into.end() && it->is_object() && v.is_object()) {
      merge(*it, v);
    } else {
      into[key] = v;
    }
  }
}

std::string StateDocument::text(const json& v, const std::string& path) {
  switch (v.type()) {
    case json::value_t::string:
      return v.get<std::string>();
    case json::value_t::boolean:
      return v.get<bool>() ? "true" : "false";
    case json::value_t::number_integer:
      return std::to_string(v.get<int64_t>());
    case json::value_t::number_unsigned:
      return std::to_string(v.get<uint64_t>());
    case json::value_t::number_float: {
      // 4789.0 is the integer 4789 to an integer attribute; within 2^53 the double
      // holds it exactly.
      const double d = v.get<double>();
      if (std::isfinite(d) && d == std::trunc(d) && std::fabs(d) < 9007199254740992.0) {
        return std::to_string(static_cast<long long>(d));
      }
      return v.dump();
    }
    default:
      throw StateError(path,
                       "a value is a string, number or bool, not " + std::string(v.type_name()));
  }
}

}  // namespace Statehub
