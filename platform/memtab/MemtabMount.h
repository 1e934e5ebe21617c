// LumMemtab::Mount: how an agent puts its shared-memory tables in place and gets the
// entities that write them, and how another program opens one of them to read it.
//
// In the agent:
//
//   LumMemtab::MountInfo info;
//   info.collectionInfoIs("vxlanCounter", 42);
//   info.collectionInfoIs("varpCounter", 39);
//   LumMemtab::Mount mount("vxlan");
//   mount.doMount("vxlan/counter", "Vxlan::VxlanAgentCounter", info);
//   auto counter = Lum::ptrCast<Vxlan::VxlanAgentCounter>(mount.getEntity("vxlan/counter"));
//
// In another program, read-only:
//
//   LumMemtab::TableReader r = LumMemtab::Mount::openReadOnly("vxlan", "vxlan/counter");
//
// Object names: one POSIX shared-memory object per mounted path, named
// "/vxrelay-<agentName>-<path>" where every '/' of the path becomes '-' (a leading
// one is dropped): agent "vxlan", path "vxlan/counter" gives
// "/vxrelay-vxlan-vxlan-counter". The object outlives the mount and the process: a
// later mount of the same agent and path with the same layout finds its elements as
// they were left (see Table::openOrCreate for the other cases). Nothing here removes
// objects; shm_unlink does.
//
// Table types: the mount builds the entity of a type name through the TableType that
// the file defining the type registered (VxlanAgentCounter.cpp for
// "Vxlan::VxlanAgentCounter"). The type says how wide the elements of each of its
// collections are and builds its entity over the mapped table; the MountInfo says how
// many elements each collection has.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/Entity.h"
#include "platform/core/Ptr.h"
#include "platform/core/String8.h"
#include "platform/memtab/MemtabTable.h"

namespace LumMemtab {

struct CollectionInfo {
  std::string name;
  // The number of elements.
  uint32_t size = 0;
};

enum class MountMode : uint8_t {
  // An existing table of the same layout keeps its elements.
  keep,
  // The elements are zeroed at every mount.
  clear,
};

class MountInfo {
 public:
  MountMode mode() const { return mode_; }
  void modeIs(MountMode m) { mode_ = m; }

  // In the order they were first given; that is their order in the table.
  const std::vector<CollectionInfo>& collectionInfos() const { return collections_; }
  const CollectionInfo* collectionInfo(std::string_view name) const;
  // Adds a collection of `size` elements, or sets the size of the one of that name.
  void collectionInfoIs(std::string_view name, uint32_t size);

 private:
  MountMode mode_ = MountMode::keep;
  std::vector<CollectionInfo> collections_;
};

struct TableType {
  using Factory =
      std::function<Lum::Ptr<Lum::Entity>(const Lum::Name& name, std::shared_ptr<Table> table)>;

  std::string typeName;
  // The element width, in bytes, of each collection the type has.
  std::map<std::string, uint32_t, std::less<>> elementBytes;
  // Builds the entity over a table laid out for it.
  Factory factory;
};

// The table types of the program, registered at load time from static initialisers.
class TableTypes {
 public:
  // Throws Lum::NameInUseException for a second type of the same name.
  static const TableType& add(TableType type);
  static const TableType* type(std::string_view typeName);
};

class Mount {
 public:
  // Throws Lum::RangeException for an empty name or one with a '/'.
  explicit Mount(Lum::Name agentName);

  const Lum::Name& agentName() const { return agentName_; }

  // The shared-memory object name for a path (see above). Throws Lum::RangeException
  // for an empty agent name or path, an agent name with a '/', or a name longer than
  // NAME_MAX.
  static std::string objectName(std::string_view agentName, std::string_view path);
  std::string objectName(std::string_view path) const {
    return objectName(agentName_.view(), path);
  }

  // Creates or opens the object for `path`, lays it out for `info` with the element
  // widths of `typeName` and builds the entity of that type over it. Throws
  // Lum::RangeException for an unknown type or a collection the type does not have,
  // Lum::NameInUseException when `path` is mounted already, Lum::ErrnoException when a
  // system call fails.
  void doMount(std::string_view path, std::string_view typeName, const MountInfo& info);

  // The entity mounted at `path`, empty when there is none. It keeps its table mapped
  // for as long as it lives, also after the mount is gone.
  Lum::Ptr<Lum::Entity> getEntity(std::string_view path) const;

  // Opens the table of an agent read-only; see TableReader::open.
  static TableReader openReadOnly(std::string_view agentName, std::string_view path);

 private:
  Lum::Name agentName_;
  // The entities by path; each holds its table.
  std::map<std::string, Lum::Ptr<Lum::Entity>, std::less<>> mounted_;
};

}  // namespace LumMemtab
