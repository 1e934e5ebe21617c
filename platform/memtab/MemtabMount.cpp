#include "platform/memtab/MemtabMount.h"

#include <climits>

#include "platform/core/Exception.h"

namespace LumMemtab {

namespace {

// Built on first use, so that types may register from any file's static initialiser.
std::map<std::string, TableType, std::less<>>& tableTypes() {
  static auto* types = new std::map<std::string, TableType, std::less<>>;
  return *types;
}

// The entity takes the last component of its path as its name.
Lum::Name entityName(std::string_view path) {
  const size_t slash = path.find_last_of('/');
  return Lum::Name(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace

const CollectionInfo* MountInfo::collectionInfo(std::string_view name) const {
  for (const CollectionInfo& c : collections_) {
    if (c.name == name) return &c;
  }
  return nullptr;
}

void MountInfo::collectionInfoIs(std::string_view name, uint32_t size) {
  for (CollectionInfo& c : collections_) {
    if (c.name == name) {
      c.size = size;
      return;
    }
  }
  collections_.push_back({std::string(name), size});
}

const TableType& TableTypes::add(TableType type) {
  auto& types = tableTypes();
  if (types.contains(type.typeName)) Lum::throwNameInUseException(type.typeName);
  std::string name = type.typeName;
  return types.emplace(std::move(name), std::move(type)).first->second;
}

const TableType* TableTypes::type(std::string_view typeName) {
  auto& types = tableTypes();
  auto it = types.find(typeName);
  return it == types.end() ? nullptr : &it->second;
}

Mount::Mount(Lum::Name agentName) : agentName_(std::move(agentName)) {
  if (agentName_.empty() || agentName_.view().find('/') != std::string_view::npos) {
    Lum::throwRangeException("bad agent name for shared tables: \"" + agentName_.string().str() +
                             "\"");
  }
}

std::string Mount::objectName(std::string_view agentName, std::string_view path) {
  if (!path.empty() && path.front() == '/') path.remove_prefix(1);
  if (agentName.empty() || path.empty() || agentName.find('/') != std::string_view::npos) {
    Lum::throwRangeException("bad shared table name: agent \"" + std::string(agentName) +
                             "\", path \"" + std::string(path) + "\"");
  }
  std::string name = "/vxrelay-" + std::string(agentName) + "-" + std::string(path);
  for (size_t i = 1; i < name.size(); ++i) {
    if (name[i] == '/') name[i] = '-';
  }
  if (name.size() > NAME_MAX) Lum::throwRangeException("shared table name too long: " + name);
  return name;
}

void Mount::doMount(std::string_view path, std::string_view typeName, const MountInfo& info) {
  if (mounted_.contains(path)) Lum::throwNameInUseException(path);
  const TableType* type = TableTypes::type(typeName);
  if (!type) Lum::throwRangeException("no shared table type \"" + std::string(typeName) + "\"");

  std::vector<CollectionShape> shapes;
  for (const CollectionInfo& c : info.collectionInfos()) {
    auto width = type->elementBytes.find(c.name);
    if (width == type->elementBytes.end()) {
      Lum::throwRangeException("shared table type " + type->typeName + " has no collection \"" +
                               c.name + "\"");
    }
    shapes.push_back({c.name, width->second, c.size});
  }
  std::shared_ptr<Table> table = Table::openOrCreate(objectName(path), Layout::plan(shapes));
  if (info.mode() == MountMode::clear) table->elementsClear();
  Lum::Ptr<Lum::Entity> entity = Lum::validPtr(type->factory(entityName(path), table));
  mounted_.emplace(std::string(path), std::move(entity));
}

Lum::Ptr<Lum::Entity> Mount::getEntity(std::string_view path) const {
  auto it = mounted_.find(path);
  return it == mounted_.end() ? nullptr : it->second;
}

TableReader Mount::openReadOnly(std::string_view agentName, std::string_view path) {
  return TableReader::open(objectName(agentName, path));
}

}  // namespace LumMemtab
