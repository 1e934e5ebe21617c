// Statehub: the state database, embedded in the agent host's process.
//
// Other agents of the switch publish their status as entities at paths of the
// database; an agent asks for the paths it reads or writes ("mounts" them) and then
// finds the entities there:
//
//   class MyAgent : public Statehub::Mounter {
//     void start(Statehub::EntityManager& em) {
//       Lum::Ptr<Statehub::MountGroup> mg = em.getMountGroup(this);
//       mg->doMount("r", "Vxlan::VniToVlanMaps", Cell::mountpath("vxlan/vniToVlanMaps/"));
//       mg->doMount("wc", "Lum::Dir", Cell::mountpath("agent/commandRequest/vxlan"));
//       mg->doClose(false, "", 0);
//     }
//     void doMountsComplete(Statehub::MountStatus s, Statehub::EntityManager& em) override {
//       auto maps = Lum::ptrCast<Vxlan::VniToVlanMaps>(
//           em.getEntity(Cell::path("vxlan/vniToVlanMaps")));
//     }
//   };
//
// Mounting. A group is closed once; its mounts are then made in one reaction of the
// event loop, never inside doClose, and the mounter hears the outcome in that same
// reaction. A path (a trailing slash is dropped) that does not exist yet is created as
// an entity of the named registered type, named after its last component; a path that
// exists with the same type is shared. An unknown type, a type without a constructor
// taking the name, a path that exists with another type, or kept state that the new
// entities refuse fails the whole group (mountFailed_) and creates nothing. Modes are
// recorded, not enforced: the state files and the control socket stand for the other
// agents of the switch, which write whatever the agent only reads.
//
// State. stateIs() takes a document whose keys are mount paths and whose values
// describe the entity there (see StateDocument.h). It is checked whole before anything
// is written: parts for mounted paths are written at once, the rest is kept and written
// into the entities of those paths when they are first mounted. pendingStatePaths()
// lists what is kept, for a warning when a state file names a path no one mounts.
//
// Paths deeper than a mount reach entities inside it: "<mount>/<collection>/<key>/..."
// and "<mount>/<child>/...", by attribute name; keys may contain slashes
// ("Ethernet1/1").
#pragma once

#include <functional>

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/Entity.h"
#include "platform/loop/EventLoop.h"
#include "platform/statehub/StateDocument.h"

namespace Statehub {

enum MountStatus : int {
  mountUnknown_ = 0,
  mountInProgress_ = 1,
  mountFailed_ = 2,
  mountTimedOut_ = 3,
  mountSuccess_ = 4,
};

class EntityManager;

// Who asks for mounts: hears once per group how they went.
class Mounter {
 public:
  virtual ~Mounter() = default;
  virtual void doMountsComplete(MountStatus status, EntityManager& em) = 0;
};

class MountGroup : public Lum::VFPtrInterface {
 public:
  struct Mount {
    std::string mode;
    std::string typeName;
    std::string path;  // without its trailing slash
    bool operator==(const Mount&) const = default;
  };

  // Adds a mount; a group that is already closed takes no more (range exception).
  void doMount(const std::string& mode, const std::string& typeName, const std::string& path);
  // Closes the group; the mounts are made and reported later, on the loop. `wait` and
  // `timeout` (0: none) are recorded: mounts here never wait for anything.
  void doClose(bool wait, const std::string& unused, double timeout);

  const std::vector<Mount>& mounts() const { return mounts_; }
  bool closed() const { return closed_; }
  bool waitRequested() const { return wait_; }
  double timeout() const { return timeout_; }
  // mountInProgress_ from doClose until the outcome; then mountSuccess_ or mountFailed_.
  MountStatus status() const { return status_; }
  // Why the group failed, "" otherwise.
  const std::string& error() const { return error_; }

  ~MountGroup() override;

 private:
  friend class EntityManager;
  MountGroup(EntityManager* em, Mounter* mounter, Lum::EventLoop& loop);
  void complete();

  EntityManager* em_;  // cleared when the manager goes first
  Mounter* mounter_;
  Lum::EventLoop* loop_;
  std::vector<Mount> mounts_;
  bool closed_ = false;
  bool wait_ = false;
  double timeout_ = 0;
  MountStatus status_ = mountUnknown_;
  std::string error_;
};

class EntityManager : public Lum::VFPtrInterface {
 public:
  explicit EntityManager(Lum::EventLoop& loop = Lum::eventLoop());
  ~EntityManager() override;
  EntityManager(const EntityManager&) = delete;
  EntityManager& operator=(const EntityManager&) = delete;

  Lum::EventLoop& loop() const { return *loop_; }
  // Virtual so that a test can watch the groups an agent asks for.
  virtual Lum::Ptr<MountGroup> getMountGroup(Mounter* mounter);

  // The most bytes of state kept for paths that nothing has mounted (as JSON text). A
  // document that would keep more is refused whole: nothing bounds what a client may
  // send for such paths otherwise.
  static constexpr size_t kMaxPendingBytes = 16u << 20;
  // The most components a path may have; longer ones are refused (StateError).
  static constexpr size_t kMaxPathComponents = 64;

  // The entity at a mount path or deeper inside one; empty when there is none.
  Lum::Ptr<Lum::Entity> getEntity(std::string_view path) const;
  bool isMounted(std::string_view path) const;
  // The registered type a path was mounted with; nullptr when it is not mounted.
  const Lum::TypeInfo* mountType(std::string_view path) const;
  std::vector<std::string> mountPaths() const;

  // Takes a state document, whole or not at all (StateError names the path refused).
  void stateIs(const nlohmann::json& doc);
  // Reads and parses a JSON file, then stateIs(); a file that cannot be read or parsed
  // is a StateError naming the file.
  void stateFileIs(const std::string& path);
  // The entity at `path` (as for getEntity) as a document; StateError when there is none.
  nlohmann::json stateOf(std::string_view path) const;
  // The top-level paths of kept state that no mount has taken yet.
  std::vector<std::string> pendingStatePaths() const;

  // A path as the database keys it: without trailing slashes.
  static std::string normalizedPath(std::string_view path);

  // Told the outcome of every mount group, before its mounter is: the host ends the
  // process on a failed mount.
  using MountStatusObserver = std::function<void(MountStatus, const std::string& error)>;
  void mountStatusObserverIs(MountStatusObserver o) { mountStatusObserver_ = std::move(o); }

  // Questions the agent answers about itself through the control socket ("query"
  // requests): what it runs, what it waits for, what a frame would meet. The agent
  // registers them when it has started and removes them when it cleans up; an answer
  // runs on the event loop, like every request, and must change nothing. `args` is the
  // request's "args" object ({} when absent); an answer throws Lum::Exception (or
  // another std::exception) to refuse it with that text.
  using Query = std::function<nlohmann::json(const nlohmann::json& args)>;
  void queryIs(const std::string& name, Query query) { queries_[name] = std::move(query); }
  void queryDel(const std::string& name) { queries_.erase(name); }
  // The answer of query `name`; StateError when no such query is registered.
  nlohmann::json answerOf(const std::string& name, const nlohmann::json& args) const;
  std::vector<std::string> queryNames() const;

 private:
  friend class MountGroup;
  struct MountPoint {
    Lum::Ptr<Lum::Entity> entity;
    const Lum::TypeInfo* type;
  };

  // Makes the mounts of a closed group; on failure sets `error` and changes nothing.
  MountStatus mount(const std::vector<MountGroup::Mount>& mounts, std::string& error);

  Lum::EventLoop* loop_;
  std::map<std::string, MountPoint, std::less<>> mounts_;
  nlohmann::json pending_ = nlohmann::json::object();
  std::map<std::string, Query, std::less<>> queries_;
  std::set<MountGroup*> groups_;
  // Mounts find their types by name, and a static link leaves out every file that
  // nothing names. The directory type, which agents mount for their command requests,
  // is named here so that its registration is always linked in.
  const Lum::TypeInfo* dirType_;
  MountStatusObserver mountStatusObserver_;
};

}  // namespace Statehub
