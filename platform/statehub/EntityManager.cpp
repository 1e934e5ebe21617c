#include "platform/statehub/EntityManager.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/core/Dir.h"
#include "platform/statehub/DocumentText.h"
#include "platform/trace/Trace.h"

namespace Statehub {

using nlohmann::json;

namespace {

Lum::TraceFacility& traceStatehub = Lum::traceFacility("Statehub");

std::vector<std::string_view> components(std::string_view path) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t slash = path.find('/', start);
    if (slash == std::string_view::npos) slash = path.size();
    parts.push_back(path.substr(start, slash - start));
    start = slash + 1;
  }
  return parts;
}

std::string_view lastComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Walks from `e` down the path components parts[i..]: an attribute name, then for a
// collection the key. Keys may contain slashes, so every split of the remaining
// components is tried, the shortest key first.
Lum::Ptr<Lum::Entity> walk(const Lum::Ptr<Lum::Entity>& e,
                           const std::vector<std::string_view>& parts, size_t i) {
  if (i == parts.size()) return e;
  const Lum::AttributeInfo* a = e->fwkType().attribute(parts[i]);
  if (!a) return nullptr;
  const Lum::TextAccess& acc = a->access;
  if (acc.kind == Lum::AttrKind::child && acc.child) {
    Lum::Ptr<Lum::Entity> child = acc.child(*e);
    return child ? walk(child, parts, i + 1) : nullptr;
  }
  if (acc.kind != Lum::AttrKind::collection || !acc.element) return nullptr;
  // The key runs from parts[i + 1] to parts[j] in the path they were cut from.
  const char* keyStart = parts[i + 1 < parts.size() ? i + 1 : i].data();
  for (size_t j = i + 1; j < parts.size(); ++j) {
    const std::string_view key(keyStart, parts[j].data() + parts[j].size() - keyStart);
    Lum::Ptr<Lum::Entity> elem;
    try {
      if (acc.checkKey) acc.checkKey(key);
      elem = acc.element(*e, key);
    } catch (const std::exception&) {
      continue;  // not a key of this collection; a longer one may be
    }
    if (!elem) continue;
    if (Lum::Ptr<Lum::Entity> found = walk(elem, parts, j + 1)) return found;
  }
  return nullptr;
}

}  // namespace

MountGroup::MountGroup(EntityManager* em, Mounter* mounter, Lum::EventLoop& loop)
    : em_(em), mounter_(mounter), loop_(&loop) {
  em_->groups_.insert(this);
}

MountGroup::~MountGroup() {
  if (em_) em_->groups_.erase(this);
}

void MountGroup::doMount(const std::string& mode, const std::string& typeName,
                         const std::string& path) {
  if (closed_) Lum::throwRangeException("mount group is closed: cannot mount " + path);
  mounts_.push_back({mode, typeName, EntityManager::normalizedPath(path)});
}

void MountGroup::doClose(bool wait, const std::string& unused, double timeout) {
  (void)unused;
  if (closed_) Lum::throwRangeException("mount group is closed already");
  closed_ = true;
  wait_ = wait;
  timeout_ = timeout;
  status_ = mountInProgress_;
  // The group keeps itself alive until its outcome is delivered, so a mounter may
  // drop its reference right after closing.
  loop_->defer([self = Lum::Ptr<MountGroup>(this)] { self->complete(); }, "Statehub::MountGroup");
}

void MountGroup::complete() {
  if (!em_) return;  // the manager is gone: there is nothing to mount into
  status_ = em_->mount(mounts_, error_);
  if (status_ != mountSuccess_) LUM_TRACE(traceStatehub, 1, "mount group failed: " << error_);
  // The observer first: a mounter that throws on failure must not hide it.
  if (em_->mountStatusObserver_) em_->mountStatusObserver_(status_, error_);
  if (mounter_) mounter_->doMountsComplete(status_, *em_);
}

EntityManager::EntityManager(Lum::EventLoop& loop) : loop_(&loop), dirType_(&Lum::Dir::kType) {}

EntityManager::~EntityManager() {
  for (MountGroup* g : groups_) g->em_ = nullptr;
}

Lum::Ptr<MountGroup> EntityManager::getMountGroup(Mounter* mounter) {
  return Lum::Ptr<MountGroup>(new MountGroup(this, mounter, *loop_));
}

std::string EntityManager::normalizedPath(std::string_view path) {
  while (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return std::string(path);
}

MountStatus EntityManager::mount(const std::vector<MountGroup::Mount>& mounts, std::string& error) {
  struct New {
    const Lum::TypeInfo* type;
    Lum::Ptr<Lum::Entity> entity;
  };
  std::map<std::string, New> created;
  auto fail = [&](const std::string& text) {
    error = text;
    return mountFailed_;
  };
  for (const MountGroup::Mount& m : mounts) {
    if (m.path.empty()) return fail("empty mount path for " + m.typeName);
    const Lum::TypeInfo* type = Lum::TypeRegistry::type(m.typeName);
    if (!type) return fail(m.path + ": unknown type " + m.typeName);
    const Lum::TypeInfo* existing = mountType(m.path);
    if (!existing) {
      auto it = created.find(m.path);
      if (it != created.end()) existing = it->second.type;
    }
    if (existing && existing != type) {
      return fail(m.path + ": mounted as " + existing->fullName() + ", not " + m.typeName);
    }
    if (!existing) created.emplace(m.path, New{type, nullptr});
  }
  for (auto& [path, n] : created) {
    try {
      n.entity = n.type->construct({{"name", std::string(lastComponent(path))}});
    } catch (const std::exception& e) {
      return fail(path + ": cannot build a " + n.type->fullName() + ": " + e.what());
    }
    if (!n.entity) return fail(path + ": cannot build a " + n.type->fullName());
  }
  // Kept state goes into the new entities before anyone can see them, so a part that
  // they refuse fails the group with nothing mounted.
  try {
    for (auto& [path, n] : created) {
      auto kept = pending_.find(path);
      if (kept != pending_.end()) StateDocument::check(*kept, *n.type, n.entity.ptr(), path);
    }
    for (auto& [path, n] : created) {
      auto kept = pending_.find(path);
      if (kept != pending_.end()) StateDocument::apply(*kept, *n.entity, path);
    }
  } catch (const std::exception& e) {
    return fail(e.what());
  }
  for (auto& [path, n] : created) {
    pending_.erase(path);
    mounts_.emplace(path, MountPoint{std::move(n.entity), n.type});
  }
  return mountSuccess_;
}

Lum::Ptr<Lum::Entity> EntityManager::getEntity(std::string_view path) const {
  const std::string p = normalizedPath(path);
  const std::vector<std::string_view> parts = components(p);
  // Every split of a path into keys may be tried: the walk is bounded by bounding the
  // path, not by trusting whoever sent it.
  if (parts.size() > kMaxPathComponents) {
    throw StateError(p.substr(0, 64) + "...",
                     "a path has at most " + std::to_string(kMaxPathComponents) + " components");
  }
  // The deepest mount that is a prefix of the path holds the entity.
  for (size_t n = parts.size(); n > 0; --n) {
    const std::string_view prefix(p.data(), parts[n - 1].data() + parts[n - 1].size() - p.data());
    auto it = mounts_.find(prefix);
    if (it == mounts_.end()) continue;
    if (Lum::Ptr<Lum::Entity> e = walk(it->second.entity, parts, n)) return e;
  }
  return nullptr;
}

bool EntityManager::isMounted(std::string_view path) const {
  return mountType(path) != nullptr;
}

const Lum::TypeInfo* EntityManager::mountType(std::string_view path) const {
  auto it = mounts_.find(normalizedPath(path));
  return it == mounts_.end() ? nullptr : it->second.type;
}

std::vector<std::string> EntityManager::mountPaths() const {
  std::vector<std::string> paths;
  for (const auto& [path, m] : mounts_) paths.push_back(path);
  return paths;
}

void EntityManager::stateIs(const json& doc) {
  if (!doc.is_object()) {
    throw StateError("state", "a state document is an object of mount paths, not " +
                                  std::string(doc.type_name()));
  }
  json byPath = json::object();
  for (const auto& [key, content] : doc.items()) {
    const std::string p = normalizedPath(key);
    if (p.empty()) throw StateError(key, "empty path");
    if (byPath.contains(p)) throw StateError(p, "named twice");
    if (!content.is_object()) {
      throw StateError(
          p, "an entity is described by an object, not " + std::string(content.type_name()));
    }
    byPath[p] = content;
  }
  // Kept state is merged into a copy and measured before anything is written, so that
  // a document refused for its size changes nothing either.
  std::optional<json> nextPending;
  for (const auto& [p, content] : byPath.items()) {
    auto it = mounts_.find(p);
    if (it != mounts_.end()) {
      StateDocument::check(content, *it->second.type, it->second.entity.ptr(), p);
    } else {
      if (!nextPending) nextPending = pending_;
      StateDocument::merge((*nextPending)[p], content);
    }
  }
  if (nextPending && nextPending->dump().size() > kMaxPendingBytes) {
    throw StateError(byPath.begin().key(),
                     "state kept for paths that nothing mounts would exceed " +
                         std::to_string(kMaxPendingBytes) + " bytes");
  }
  if (nextPending) pending_ = std::move(*nextPending);
  for (const auto& [p, content] : byPath.items()) {
    auto it = mounts_.find(p);
    if (it == mounts_.end()) continue;  // kept above
    // Held: a reactor may do anything while it reacts, short of unmounting.
    Lum::Ptr<Lum::Entity> e = it->second.entity;
    StateDocument::apply(content, *e, p);
  }
}

void EntityManager::stateFileIs(const std::string& path) {
  stateIs(DocumentText::readFile(path));
}

json EntityManager::stateOf(std::string_view path) const {
  Lum::Ptr<Lum::Entity> e = getEntity(path);
  if (!e) throw StateError(path, "no entity");
  return StateDocument::of(*e);
}

std::vector<std::string> EntityManager::pendingStatePaths() const {
  std::vector<std::string> paths;
  for (const auto& [path, content] : pending_.items()) paths.push_back(path);
  return paths;
}

json EntityManager::answerOf(const std::string& name, const json& args) const {
  auto it = queries_.find(name);
  if (it == queries_.end()) throw StateError(name, "no such query (is the agent running?)");
  return it->second(args);
}

std::vector<std::string> EntityManager::queryNames() const {
  std::vector<std::string> names;
  for (const auto& [name, query] : queries_) names.push_back(name);
  return names;
}

}  // namespace Statehub
