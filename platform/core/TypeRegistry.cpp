#include "platform/core/TypeRegistry.h"

#include <algorithm>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "platform/core/Entity.h"
#include "platform/core/Reactor.h"

namespace Lum {

namespace {
// Types live for the whole process; the map owns them so that references handed out
// by add() stay valid.
std::map<std::string, std::unique_ptr<TypeInfo>, std::less<>>& registry() {
  static std::map<std::string, std::unique_ptr<TypeInfo>, std::less<>> types;
  return types;
}

// The names in the order they registered: a library's type table is read in that order.
std::vector<std::string>& registrationOrder() {
  static std::vector<std::string> names;
  return names;
}
}  // namespace

TypeInfo::TypeInfo(std::string fullName, std::string baseName)
    : fullName_(std::move(fullName)), baseName_(std::move(baseName)) {}

const TypeInfo* TypeInfo::base() const {
  return baseName_.empty() ? nullptr : TypeRegistry::type(baseName_);
}

TypeInfo&& TypeInfo::attribute(std::string name, int id, TextAccess access) && {
  attributes_.push_back({std::move(name), id, std::move(access)});
  return std::move(*this);
}

TypeInfo&& TypeInfo::attributeNames(std::initializer_list<const char*> names, int firstId) && {
  for (const char* name : names) attributes_.push_back({name, firstId++, {}});
  return std::move(*this);
}

TypeInfo&& TypeInfo::operation(std::string name, std::function<void(Entity&)> op) && {
  operations_.emplace(std::move(name), std::move(op));
  return std::move(*this);
}

TypeInfo&& TypeInfo::watcher(WatcherFactory factory) && {
  watcher_ = factory;
  return std::move(*this);
}

TypeInfo&& TypeInfo::constructor(std::vector<std::string> argNames, Factory factory) && {
  argNames_ = std::move(argNames);
  factory_ = std::move(factory);
  return std::move(*this);
}

const AttributeInfo* TypeInfo::attribute(std::string_view name) const {
  for (const TypeInfo* t = this; t; t = t->base()) {
    for (const AttributeInfo& a : t->attributes_) {
      if (a.name == name) return &a;
    }
  }
  return nullptr;
}

const AttributeInfo* TypeInfo::attribute(int id) const {
  for (const TypeInfo* t = this; t; t = t->base()) {
    for (const AttributeInfo& a : t->attributes_) {
      if (a.id == id) return &a;
    }
  }
  return nullptr;
}

String8 TypeInfo::attributeString(int id) const {
  const AttributeInfo* a = attribute(id);
  return a ? String8(a->name) : String8("unknown");
}

Ptr<Entity> TypeInfo::construct(const Args& args) const {
  bool match = factory_ && args.size() == argNames_.size();
  for (size_t i = 0; match && i < args.size(); ++i) match = args[i].first == argNames_[i];
  if (!match) {
    std::string given;
    for (const auto& [name, value] : args) given += (given.empty() ? "" : ", ") + name;
    throwRangeException(lumTypeShortName(fullName_) + ": unknown argument list (" + given + ")");
  }
  return factory_(args);
}

void TypeInfo::invoke(Entity& e, std::string_view op) const {
  for (const TypeInfo* t = this; t; t = t->base()) {
    auto it = t->operations_.find(op);
    if (it != t->operations_.end()) return it->second(e);
  }
  throwRangeException(lumTypeShortName(fullName_) + ": no operation " + std::string(op));
}

Ptr<ReactorBase> TypeInfo::watch(const Entity& e, std::function<void(int attrId)> seen) const {
  return watcher_ ? watcher_(e, std::move(seen)) : Ptr<ReactorBase>();
}

const TypeInfo& TypeRegistry::add(TypeInfo type) {
  auto& types = registry();
  std::string name = type.fullName();
  if (types.count(name)) throwNameInUseException(name);
  auto [it, inserted] = types.emplace(name, std::make_unique<TypeInfo>(std::move(type)));
  // A place kept for it in a table is its place; else it comes last.
  std::vector<std::string>& order = registrationOrder();
  if (std::find(order.begin(), order.end(), name) == order.end()) order.push_back(std::move(name));
  return *it->second;
}

void TypeRegistry::placeIs(const std::string& fullName) {
  // Registered already (its file's initialisers ran first): it moves to this place.
  std::vector<std::string>& order = registrationOrder();
  order.erase(std::remove(order.begin(), order.end(), fullName), order.end());
  order.push_back(fullName);
}

const TypeInfo* TypeRegistry::type(std::string_view fullName) {
  auto it = registry().find(fullName);
  return it == registry().end() ? nullptr : it->second.get();
}

std::vector<std::string> TypeRegistry::typeNames() {
  std::vector<std::string> names;
  for (const std::string& name : registrationOrder()) {
    if (registry().count(name)) names.push_back(name);
  }
  return names;
}

GenericRef::GenericRef(Ptr<const Entity> e) : constEntity_(std::move(e)), isConst_(true) {}

const Entity& GenericRef::readable() const {
  return *constEntity_;
}

Entity& GenericRef::writable(std::string_view what) const {
  (void)what;
  if (isConst_)
    throw Exception("attempting to modify a const instance", ExceptionId::constInstance);
  return *entity_;
}

const TextAccess& GenericRef::access(std::string_view attr, AttrKind kind) const {
  const Entity& e = readable();
  const AttributeInfo* a = e.fwkType().attribute(attr);
  if (!a) throwRangeException(e.fwkType().fullName() + " has no attribute " + std::string(attr));
  if (a->access.kind != kind) {
    throwRangeException(e.fwkType().fullName() + "::" + std::string(attr) +
                        " cannot be used that way");
  }
  return a->access;
}

GenericRef GenericRef::sameConstness(Ptr<Entity> e) const {
  if (isConst_) return GenericRef(Ptr<const Entity>(e.ptr()));
  return GenericRef(std::move(e));
}

std::string GenericRef::attribute(std::string_view name) const {
  return access(name, AttrKind::value).get(readable());
}

void GenericRef::attributeIs(std::string_view name, std::string_view text) const {
  const TextAccess& a = access(name, AttrKind::value);
  Entity& e = writable(name);
  if (!a.set)
    throwRangeException(e.fwkType().fullName() + "::" + std::string(name) + " is read-only");
  a.set(e, text);
}

void GenericRef::invoke(std::string_view op) const {
  Entity& e = writable(op);
  e.fwkType().invoke(e, op);
}

std::vector<std::string> GenericRef::keys(std::string_view attr) const {
  const Entity& e = readable();
  const AttributeInfo* a = e.fwkType().attribute(attr);
  if (!a || !a->access.keys) {
    throwRangeException(e.fwkType().fullName() + " has no collection " + std::string(attr));
  }
  return a->access.keys(e);
}

std::string GenericRef::entry(std::string_view attr, std::string_view key) const {
  return access(attr, AttrKind::map).entry(readable(), key);
}

void GenericRef::entryIs(std::string_view attr, std::string_view key,
                         std::string_view value) const {
  const Entity& e = readable();
  const AttributeInfo* a = e.fwkType().attribute(attr);
  if (!a || !a->access.entryIs) {
    throwRangeException(e.fwkType().fullName() + " has no writable collection " +
                        std::string(attr));
  }
  a->access.entryIs(writable(attr), key, value);
}

void GenericRef::entryDel(std::string_view attr, std::string_view key) const {
  const Entity& e = readable();
  const AttributeInfo* a = e.fwkType().attribute(attr);
  if (!a || !a->access.entryDel) {
    throwRangeException(e.fwkType().fullName() + " has no writable collection " +
                        std::string(attr));
  }
  a->access.entryDel(writable(attr), key);
}

std::optional<GenericRef> GenericRef::element(std::string_view attr, std::string_view key) const {
  Ptr<Entity> e = access(attr, AttrKind::collection).element(readable(), key);
  if (!e) return std::nullopt;
  return sameConstness(std::move(e));
}

std::optional<GenericRef> GenericRef::child(std::string_view attr) const {
  Ptr<Entity> e = access(attr, AttrKind::child).child(readable());
  if (!e) return std::nullopt;
  return sameConstness(std::move(e));
}

std::string lumTypeShortName(std::string_view fullName) {
  size_t colon = fullName.rfind("::");
  return std::string(colon == std::string_view::npos ? fullName : fullName.substr(colon + 2));
}

// The closing double quote of the mutator's message looks stray; it is part of the
// operators' vocabulary and stays as it stands.
void throwNullParam(std::string_view param, std::string_view qualifiedName) {
  if (qualifiedName.empty())
    throwRangeException("an empty " + std::string(param) + " is not allowed");
  throwRangeException("null _" + std::string(param) + " parameter to mutator for " +
                      std::string(qualifiedName) + " not allowed\"");
}

void throwBadText(std::string_view typeName, std::string_view text) {
  throwRangeException("not a valid " + std::string(typeName) + ": \"" + std::string(text) + "\"");
}

bool parseBool(std::string_view text) {
  if (text == "true" || text == "1") return true;
  if (text == "false" || text == "0") return false;
  throwBadText("bool", text);
}

long long parseSigned(std::string_view text, long long min, long long max) {
  long long v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) {
    throwBadText("number", text);
  }
  if (v < min || v > max) throwRangeException("value " + std::string(text) + " out of range");
  return v;
}

unsigned long long parseUnsigned(std::string_view text, unsigned long long max) {
  unsigned long long v = 0;
  int base = 10;
  std::string_view digits = text;
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    base = 16;
    digits.remove_prefix(2);
  }
  auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), v, base);
  if (digits.empty() || ec != std::errc() || end != digits.data() + digits.size()) {
    throwBadText("unsigned number", text);
  }
  if (v > max) throwRangeException("value " + std::string(text) + " out of range");
  return v;
}

double parseDouble(std::string_view text) {
  // A plain decimal or exponent form only: no blanks, no hex, no infinity or NaN,
  // which no attribute of ours can mean.
  double v = 0;
  const char* end = text.data() + text.size();
  auto [stop, err] = std::from_chars(text.data(), end, v, std::chars_format::general);
  if (text.empty() || err != std::errc() || stop != end || !std::isfinite(v)) {
    throwBadText("number", text);
  }
  return v;
}

}  // namespace Lum
