// KernelNetworkInfo::Manager: keeps a KernelNetworkInfo::Root in step with the network
// devices of one kernel network namespace.
//
//   Lum::Ptr<KernelNetworkInfo::Root> root(new KernelNetworkInfo::Root("kernel"));
//   KernelNetworkInfo::Manager manager(activity, root, Wire::NamespaceName("blue"));
//   // root now lists the devices of namespace "blue"; the loop keeps it current
//
// The manager opens an rtnetlink socket subscribed to link events in the namespace
// (an empty name is the process's own; any other is the file /run/netns/<name> that
// `ip netns add` creates). The socket is created inside the namespace and stays bound
// to it; the calling thread is moved there only for the socket() call and always
// moved back, on failure too. Then it asks for a dump of every link and follows
// RTM_NEWLINK and RTM_DELLINK on the event loop, reading until the socket is empty.
//
// Guarantees:
//  - When the constructor returns, the root holds every device of the namespace (the
//    kernel answers a dump within the socket calls; should it not finish, the rest
//    arrives on the loop) and devices the root had that the namespace lacks are gone.
//  - Lost events (ENOBUFS on the socket) start a new dump; at its end every device
//    the dump did not list and no event announced since it started is deleted, new
//    ones are added and changed ones updated. A dump the kernel marks as interrupted
//    by changes is repeated.
//  - Only messages from the kernel are read. Link messages of other address families
//    (the bridge's per-port messages) are ignored: a bridge port's RTM_DELLINK must
//    not delete the device.
//  - The destructor closes the socket and leaves the root as it is.
//
// Failures in the constructor (no such namespace, no socket) throw
// Lum::ErrnoException naming the step; failures on the loop are traced at level 1 of
// the facility "KernelNetworkInfo" and the manager goes on. Level 5 traces each
// device added, changed or removed; level 6 the end of each dump; level 8 handler entry. The system
// calls go through Lum::sysCalls(), so tests can put a scripted kernel in their place.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/core/Reactor.h"
#include "platform/loop/EventLoop.h"
#include "platform/loop/FileDescriptor.h"
#include "platform/status/interface/KernelNetworkInfo.h"
#include "platform/types/NamespaceName.h"

struct nlmsghdr;

namespace KernelNetworkInfo {

// Reads an RTM_NEWLINK or RTM_DELLINK message. Nothing for any other message type and
// for link messages of a family other than AF_UNSPEC; nothing with `fault` set (when
// given) for a message that is too short, has index 0 or lacks a usable name.
std::optional<InterfaceState> parseLink(const nlmsghdr* nlh, std::string* fault = nullptr);

class Manager : public Lum::VFPtrInterface {
 public:
  static constexpr size_t kReceiveBufferBytes = 64 * 1024;
  // Asked of the kernel for the socket's queue, so that bursts of events (a bridge
  // with many ports going down) fit; the kernel caps it at net.core.rmem_max.
  static constexpr int kSocketQueueBytes = 1 << 20;
  // Dumps that end in an error are asked again this many times in a row.
  static constexpr int kDumpRetries = 3;

  // `activity` may be empty: the reactions to the socket then run as soon as the loop
  // finds it readable. Throws RangeException for a namespace name that is not a plain
  // file name.
  Manager(const Lum::Ptr<Lum::ActivityConfig>& activity, const Lum::Ptr<Root>& root,
          const Wire::NamespaceName& ns, Lum::EventLoop& loop = Lum::eventLoop());
  ~Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  const Lum::Ptr<Root>& root() const { return root_; }
  const Wire::NamespaceName& namespaceName() const { return ns_; }
  int descriptor() const { return sock_; }
  // True while the answer to a dump request is being read.
  bool dumpInProgress() const { return dumpSeq_ != 0; }
  // Dump requests sent: the first one and one per resync.
  uint64_t dumpRequests() const { return dumpRequests_; }

 private:
  class Reader : public Lum::FileDescriptor::NotifieeConst {
   public:
    explicit Reader(Manager* m) : manager_(m) {}
    void managerIs(Manager* m) { manager_ = m; }
    void onReadableCount() override;

   private:
    Manager* manager_;
  };

  int openSocket();
  void closeSocket() noexcept;
  // Sends a dump request, or notes that one is due when a dump is still running.
  // False, with errno set, when the request could not be sent.
  bool requestDump();
  // Reads until the socket has nothing more to give.
  void drain();
  void handleDatagram(const uint8_t* data, size_t len);
  void handleMessage(const nlmsghdr* nlh);
  void handleDumpEnd(bool interrupted);
  void handleDumpError(int err);
  void linkIs(const InterfaceState& s);
  void linkDel(Wire::IfIndex i);

  Lum::Ptr<Lum::ActivityConfig> activity_;
  Lum::Ptr<Root> root_;
  Wire::NamespaceName ns_;
  Lum::EventLoop& loop_;
  int sock_ = -1;
  // The socket's netlink port: the kernel's answers to our requests carry it, events
  // carry the port of whoever caused them (or 0).
  uint32_t portId_ = 0;
  Lum::Ptr<Lum::FileDescriptor> fd_;
  Lum::Ptr<Reader> reader_;
  std::vector<uint8_t> buffer_;

  uint32_t lastSeq_ = 0;
  // The sequence number of the dump being read; 0 when none is.
  uint32_t dumpSeq_ = 0;
  // Devices the running dump listed or an event announced since it began.
  std::set<Wire::IfIndex> seen_;
  bool dumpDue_ = false;
  bool dumpInterrupted_ = false;
  int dumpFailures_ = 0;
  uint64_t dumpRequests_ = 0;
};

}  // namespace KernelNetworkInfo
