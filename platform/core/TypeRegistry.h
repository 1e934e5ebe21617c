// The framework's type system: entity types by name, their attributes by id, and a
// generic interface to build a type, read and write attributes and call operations
// by name, with values in their text form.
//
// A type registers once, at load time, from a static initialiser:
//
//   const Lum::TypeInfo& Counter::kType = Lum::TypeRegistry::add(
//       Lum::TypeInfo("Demo::Counter", "Lum::Entity")
//           .attribute("value", kValue, Lum::textAttr<&Counter::value, &Counter::valueIs>())
//           .operation("reset", [](Lum::Entity& e) { static_cast<Counter&>(e).reset(); })
//           .constructor({"name"}, [](const Lum::TypeInfo::Args& a) { ... }));
//
// The host uses the registry to build the agent by its type name; the state files and
// the control socket use it to reach attributes by name.
#pragma once

#include <charconv>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/core/Exception.h"
#include "platform/core/Ptr.h"
#include "platform/core/String8.h"

namespace Lum {

class Entity;
class ReactorBase;
class TypeInfo;

// What kind of attribute the generic interface sees.
enum class AttrKind {
  none,        // registered for its id and name only
  value,       // a plain value: get and set as text
  map,         // a collection of plain values: entries as key and value texts
  collection,  // a collection of entities by key: elements reached by key text
  child,       // one owned entity
};

// The text accessors of one attribute. The functions that do not apply to its kind
// are empty; an empty writer means the generic interface may only read.
// What a value's text stands for, so that a JSON view can show it typed: a number's
// text is its decimal (or shortest floating) form, a boolean's "true" or "false".
enum class TextKind : uint8_t { text, number, boolean };

struct TextAccess {
  AttrKind kind = AttrKind::none;
  // value: the value's; map and set: the entries' values'.
  TextKind valueKind = TextKind::text;
  std::function<std::string(const Entity&)> get;
  std::function<void(Entity&, std::string_view)> set;
  // map and collection: the keys in iteration order, as text
  std::function<std::vector<std::string>(const Entity&)> keys;
  // map: the value of a key ("" when absent); collection: unused
  std::function<std::string(const Entity&, std::string_view key)> entry;
  // map: sets a key to a value; collection: creates the element (value unused)
  std::function<void(Entity&, std::string_view key, std::string_view value)> entryIs;
  std::function<void(Entity&, std::string_view key)> entryDel;
  // collection: the element of a key, or empty
  std::function<Ptr<Entity>(const Entity&, std::string_view key)> element;
  // child: the owned entity, or empty
  std::function<Ptr<Entity>(const Entity&)> child;

  // Checks that read a text without writing anything, so that a request can be
  // refused whole before any of it is applied: the value of a plain attribute, the key
  // of a map or collection, and a map entry as a whole (its key and value together,
  // since an entity may refuse a pair of good texts). Each refuses exactly what the
  // write would: the write reads its texts through the same function.
  std::function<void(std::string_view)> checkValue;
  std::function<void(std::string_view)> checkKey;
  std::function<void(std::string_view key, std::string_view value)> checkEntry;
  // collection and child: the type of the elements. A function, because types
  // register from static initialisers in any order.
  std::function<const TypeInfo*()> elementType;
};

struct AttributeInfo {
  std::string name;
  int id = 0;
  TextAccess access;
};

class TypeInfo {
 public:
  // Constructor arguments by name, each in its text form.
  using Args = std::vector<std::pair<std::string, std::string>>;
  using Factory = std::function<Ptr<Entity>(const Args&)>;

  // `baseName` names the base entity type; it is looked up when first needed, so that
  // types may register in any order across the program's static initialisers.
  explicit TypeInfo(std::string fullName, std::string baseName = "");

  TypeInfo&& attribute(std::string name, int id, TextAccess access = {}) &&;
  // Attributes known by name and id only (a state machine's inputs and collections,
  // which the generic interface does not reach), ids counting from `firstId`.
  TypeInfo&& attributeNames(std::initializer_list<const char*> names, int firstId = 0) &&;
  TypeInfo&& operation(std::string name, std::function<void(Entity&)> op) &&;
  // `argNames` is the one argument list the factory accepts.
  TypeInfo&& constructor(std::vector<std::string> argNames, Factory factory) &&;
  // A notifiee of an entity of this type that reports the id of each change of any
  // attribute, keyed or whole. Types declared with an attribute table have one.
  using WatcherFactory = Ptr<ReactorBase> (*)(const Entity&, std::function<void(int attrId)>);
  TypeInfo&& watcher(WatcherFactory factory) &&;

  const std::string& fullName() const { return fullName_; }
  const TypeInfo* base() const;
  // The attribute for a name or an id, searching base types too; nullptr if none.
  const AttributeInfo* attribute(std::string_view name) const;
  const AttributeInfo* attribute(int id) const;
  // "unknown" for an id that names no attribute.
  String8 attributeString(int id) const;
  const std::vector<AttributeInfo>& ownAttributes() const { return attributes_; }

  // Builds an instance. A call whose argument names differ from the declared list is
  // rejected with a range exception naming the type's short name.
  Ptr<Entity> construct(const Args& args) const;
  void invoke(Entity& e, std::string_view op) const;
  // Registers a watcher of `e` (an entity of this type) that calls `seen` with the id
  // of every change; empty when the type has no watcher. It watches until released.
  Ptr<ReactorBase> watch(const Entity& e, std::function<void(int attrId)> seen) const;
  bool hasWatcher() const { return watcher_ != nullptr; }

 private:
  std::string fullName_;
  std::string baseName_;
  std::vector<AttributeInfo> attributes_;
  std::map<std::string, std::function<void(Entity&)>, std::less<>> operations_;
  std::vector<std::string> argNames_;
  Factory factory_;
  WatcherFactory watcher_ = nullptr;
};

class TypeRegistry {
 public:
  // Registers `type` under its full name; a second type of the same name is a fault.
  static const TypeInfo& add(TypeInfo type);
  static const TypeInfo* type(std::string_view fullName);
  // Gives the next place in the order to a type that registers from another file
  // (static initialisers of files run in an order the language leaves open): listed
  // here whether it registered before or registers after.
  static void placeIs(const std::string& fullName);
  // Every registered name, in the order the types registered (or were placed).
  static std::vector<std::string> typeNames();
};

// A reference to an entity through the generic interface. A const reference can be
// read and may run no operation that writes.
class GenericRef {
 public:
  GenericRef(Ptr<Entity> e) : entity_(e), constEntity_(std::move(e)) {}  // NOLINT
  GenericRef(Ptr<const Entity> e);                                       // NOLINT

  bool isConst() const { return isConst_; }
  const Ptr<const Entity>& entity() const { return constEntity_; }
  std::string attribute(std::string_view name) const;
  void attributeIs(std::string_view name, std::string_view text) const;
  void invoke(std::string_view op) const;
  // Collections and owned entities; the references keep this one's constness.
  std::vector<std::string> keys(std::string_view attr) const;
  std::string entry(std::string_view attr, std::string_view key) const;
  void entryIs(std::string_view attr, std::string_view key, std::string_view value) const;
  void entryDel(std::string_view attr, std::string_view key) const;
  std::optional<GenericRef> element(std::string_view attr, std::string_view key) const;
  std::optional<GenericRef> child(std::string_view attr) const;

 private:
  const Entity& readable() const;
  Entity& writable(std::string_view what) const;
  const TextAccess& access(std::string_view attr, AttrKind kind) const;
  GenericRef sameConstness(Ptr<Entity> e) const;

  Ptr<Entity> entity_;
  Ptr<const Entity> constEntity_;
  bool isConst_ = false;
};

// Text form of values for the generic interface: numbers and bools as such, every
// other type through its stream output and its static fromString().
template <class V>
std::string toText(const V& v) {
  if constexpr (std::is_same_v<V, bool>) {
    return v ? "true" : "false";
  } else if constexpr (std::is_integral_v<V> && sizeof(V) == 1) {
    return std::to_string(static_cast<int>(v));
  } else if constexpr (std::is_floating_point_v<V>) {
    // The shortest text that reads back as the same value: what `get` shows can be
    // applied again unchanged.
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, v).ptr);
  } else {
    std::ostringstream os;
    os << v;
    return os.str();
  }
}

// Numbers, enumerations (their text stays the number) and types that say their text is
// a number (`static constexpr bool kTextIsNumber = true`) show as numbers.
template <class V>
constexpr TextKind textKindOf() {
  if constexpr (std::is_same_v<V, bool>) {
    return TextKind::boolean;
  } else if constexpr (std::is_arithmetic_v<V> || std::is_enum_v<V>) {
    return TextKind::number;
  } else if constexpr (requires { V::kTextIsNumber; }) {
    return V::kTextIsNumber ? TextKind::number : TextKind::text;
  } else {
    return TextKind::text;
  }
}

std::string lumTypeShortName(std::string_view fullName);
[[noreturn]] void throwBadText(std::string_view typeName, std::string_view text);
bool parseBool(std::string_view text);
long long parseSigned(std::string_view text, long long min, long long max);
unsigned long long parseUnsigned(std::string_view text, unsigned long long max);
double parseDouble(std::string_view text);

// One named value of a closed enumeration. An enumeration is closed when a function
// `lumEnumValues(E)` in its namespace lists its values (LUM_ENUM in Attributes.h
// declares both); its text stays the number, but a number without a name is refused,
// naming the values allowed. Other enumerations take any number of their width: their
// publishers may use values that have no name here.
template <class E>
struct EnumValue {
  E value;
  const char* name;
};
template <class V>
concept ClosedEnum = std::is_enum_v<V> && requires(V v) {
  lumEnumValues(v);
};

template <class V>
V fromText(std::string_view text);

template <class V>
V enumFromText(std::string_view text) {
  using U = std::underlying_type_t<V>;
  const V v = static_cast<V>(fromText<U>(text));
  if constexpr (ClosedEnum<V>) {
    std::string allowed;
    for (const EnumValue<V>& e : lumEnumValues(v)) {
      if (e.value == v) return v;
      allowed += (allowed.empty() ? "" : ", ") + std::string(e.name) + " (" +
                 toText(static_cast<U>(e.value)) + ")";
    }
    throwRangeException(std::string(text) + " is not one of " + allowed);
  }
  return v;
}

template <class V>
V fromText(std::string_view text) {
  if constexpr (std::is_same_v<V, bool>) {
    return parseBool(text);
  } else if constexpr (std::is_enum_v<V>) {
    return enumFromText<V>(text);
  } else if constexpr (std::is_integral_v<V> && std::is_signed_v<V>) {
    return static_cast<V>(
        parseSigned(text, std::numeric_limits<V>::min(), std::numeric_limits<V>::max()));
  } else if constexpr (std::is_integral_v<V>) {
    return static_cast<V>(parseUnsigned(text, std::numeric_limits<V>::max()));
  } else if constexpr (std::is_floating_point_v<V>) {
    return static_cast<V>(parseDouble(text));
  } else if constexpr (std::is_constructible_v<V, std::string_view>) {
    return V(text);
  } else {
    return V::fromString(text);
  }
}

// True for the value that stands for "none" as the key of an entity collection: the
// default value of the type, or an empty reference.
template <class T>
bool lumIsEmptyParam(const T& v) {
  if constexpr (requires { v.ptr(); }) {
    return !v;
  } else {
    return v == T{};
  }
}

// Refuses an empty key of the entity collection `qualifiedName` (built from `param`),
// with the range exception that its mutator raises.
[[noreturn]] void throwNullParam(std::string_view param, std::string_view qualifiedName);
template <class T>
const T& checkParam(const T& v, std::string_view param, std::string_view qualifiedName) {
  if (lumIsEmptyParam(v)) throwNullParam(param, qualifiedName);
  return v;
}

template <auto Get>
struct GetterOf;
template <class C, class R, R (C::*Get)() const>
struct GetterOf<Get> {
  using Class = C;
  using Value = std::remove_cvref_t<R>;
};

// Text access for an attribute with a reader and, optionally, a writer.
template <auto Get, auto Set = nullptr>
TextAccess textAttr() {
  using C = typename GetterOf<Get>::Class;
  using V = typename GetterOf<Get>::Value;
  TextAccess a;
  a.kind = AttrKind::value;
  a.valueKind = textKindOf<V>();
  a.get = [](const Entity& e) { return toText((static_cast<const C&>(e).*Get)()); };
  a.checkValue = [](std::string_view t) { (void)fromText<V>(t); };
  if constexpr (!std::is_same_v<decltype(Set), std::nullptr_t>) {
    a.set = [](Entity& e, std::string_view t) { (static_cast<C&>(e).*Set)(fromText<V>(t)); };
  }
  return a;
}

// Picks the reader `x() const` of an attribute whose lookup `x(key) const` has the
// same name: mapAttr<Lum::reader(&E::x), ...>.
template <class C, class R>
constexpr auto reader(R (C::*f)() const) {
  return f;
}

template <class M>
struct MapTypes;
template <template <class, class> class Map, class K, class V>
struct MapTypes<Map<K, V>> {
  using Key = K;
  using Value = V;
};

// Text access for a collection of plain values: `Map` reads the whole map (a
// Lum::ValueMap), `Set` writes one key, `Del` removes one. `Rule`, when given, is the
// entity's own judgement of a pair, `void rule(const K&, const V&)`, which throws; the
// check and the write both read an entry through readEntry(), so they refuse alike.
template <auto Map, auto Set, auto Del, auto Rule = nullptr>
TextAccess mapAttr() {
  using C = typename GetterOf<Map>::Class;
  using K = typename MapTypes<typename GetterOf<Map>::Value>::Key;
  using V = typename MapTypes<typename GetterOf<Map>::Value>::Value;
  static constexpr auto readEntry = [](std::string_view key, std::string_view value) {
    std::pair<K, V> kv(fromText<K>(key), fromText<V>(value));
    if constexpr (!std::is_same_v<decltype(Rule), std::nullptr_t>) Rule(kv.first, kv.second);
    return kv;
  };
  TextAccess a;
  a.kind = AttrKind::map;
  a.valueKind = textKindOf<V>();
  a.checkKey = [](std::string_view t) { (void)fromText<K>(t); };
  a.checkEntry = [](std::string_view key, std::string_view value) { (void)readEntry(key, value); };
  a.keys = [](const Entity& e) {
    std::vector<std::string> keys;
    for (const auto& [k, v] : (static_cast<const C&>(e).*Map)()) keys.push_back(toText(k));
    return keys;
  };
  a.entry = [](const Entity& e, std::string_view key) {
    auto v = (static_cast<const C&>(e).*Map)().find(fromText<K>(key));
    return v ? toText(*v) : std::string();
  };
  if constexpr (!std::is_same_v<decltype(Set), std::nullptr_t>) {
    a.entryIs = [](Entity& e, std::string_view key, std::string_view value) {
      auto [k, v] = readEntry(key, value);
      (static_cast<C&>(e).*Set)(k, v);
    };
  }
  a.entryDel = [](Entity& e, std::string_view key) { (static_cast<C&>(e).*Del)(fromText<K>(key)); };
  return a;
}

// Text access for a set, a map to bool whose members are true: `Set` adds one key.
// An entry's text must be true: a false one would read back as true.
template <auto Map, auto Set, auto Del>
TextAccess setAttr() {
  using C = typename GetterOf<Map>::Class;
  using K = typename MapTypes<typename GetterOf<Map>::Value>::Key;
  static constexpr auto readMember = [](std::string_view key, std::string_view value) {
    K k = fromText<K>(key);
    if (!fromText<bool>(value)) throwRangeException("a member of a set is true; null removes it");
    return k;
  };
  TextAccess a = mapAttr<Map, nullptr, Del>();
  a.checkEntry = [](std::string_view key, std::string_view value) { (void)readMember(key, value); };
  a.entryIs = [](Entity& e, std::string_view key, std::string_view value) {
    (static_cast<C&>(e).*Set)(readMember(key, value));
  };
  return a;
}

template <auto Fn>
struct KeyedFn;
template <class C, class R, class K, R (C::*Fn)(K) const>
struct KeyedFn<Fn> {
  using Class = C;
  using Key = std::remove_cvref_t<K>;
};

// Text access for a collection of entities keyed by value: `Get` looks an element up
// by key, `Set` creates it from its key, `Del` removes it, `Iter` walks the keys. The
// key check refuses the empty key as the collection's mutator does, in its words when
// `qualifiedName` and `param` name the collection and its constructor parameter.
template <auto Get, auto Set, auto Del, auto Iter>
TextAccess collectionAttr(std::string qualifiedName = "", std::string param = "key") {
  using C = typename KeyedFn<Get>::Class;
  using K = typename KeyedFn<Get>::Key;
  TextAccess a;
  a.kind = AttrKind::collection;
  a.checkKey = [qualifiedName, param](std::string_view t) {
    (void)checkParam(fromText<K>(t), param, qualifiedName);
  };
  a.elementType = [] {
    return &std::remove_cvref_t<decltype(*(std::declval<const C&>().*
                                           Get)(std::declval<K>()))>::kType;
  };
  a.keys = [](const Entity& e) {
    std::vector<std::string> keys;
    for (auto it = (static_cast<const C&>(e).*Iter)(); it; ++it) keys.push_back(toText(it.key()));
    return keys;
  };
  a.entryIs = [qualifiedName, param](Entity& e, std::string_view key, std::string_view) {
    (static_cast<C&>(e).*Set)(checkParam(fromText<K>(key), param, qualifiedName));
  };
  a.entryDel = [](Entity& e, std::string_view key) { (static_cast<C&>(e).*Del)(fromText<K>(key)); };
  a.element = [](const Entity& e, std::string_view key) -> Ptr<Entity> {
    return Ptr<Entity>((static_cast<const C&>(e).*Get)(fromText<K>(key)).ptr());
  };
  return a;
}

// Read-only text access for a reference to an entity held elsewhere (a Ptr or a plain
// pointer): its path, or "" while it is empty.
template <auto Get>
TextAccess entityRefAttr() {
  using C = typename GetterOf<Get>::Class;
  TextAccess a;
  a.kind = AttrKind::value;
  a.get = [](const Entity& e) -> std::string {
    const auto& ref = (static_cast<const C&>(e).*Get)();
    return ref ? ref->uriPath() : std::string();
  };
  return a;
}

// Text access for one owned entity.
template <auto Get>
TextAccess childAttr() {
  using C = typename GetterOf<Get>::Class;
  TextAccess a;
  a.kind = AttrKind::child;
  a.elementType = [] {
    return &std::remove_cvref_t<decltype(*(std::declval<const C&>().*Get)())>::kType;
  };
  a.child = [](const Entity& e) -> Ptr<Entity> {
    return Ptr<Entity>((static_cast<const C&>(e).*Get)().ptr());
  };
  return a;
}

}  // namespace Lum
