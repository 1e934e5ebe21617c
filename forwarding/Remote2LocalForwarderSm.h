// Vxlan::Remote2LocalForwarderSm: the remote-to-local direction. Per VXLAN tunnel
// interface a LumVtiStatusSm takes VXLAN datagrams off the interface that carries the
// VTEP address (remoteSock), checks them, turns the VNI into a VLAN, rewrites each
// frame in place into the "txraw" form and writes it to the forwarding plane
// (localSock).
//
// Use: build the manager with its Inputs; it follows the tunnel interface directory
// and keeps one LumVtiStatusSm per VTI (vtiStatusSm(intfId)). Each machine opens its
// sockets while its interface is up, rebuilds the remote socket when the UDP port, the
// source interface or its kernel device, the VTEP address or the flood group changes,
// writes the implicit IGMP memberships and PIM mode of the source interface, and keeps
// the VNI to VLAN table of its VTI (the inverse of the status's vlanToVniMap) for the
// frame path. Removing a VTI from the directory closes its sockets and clears that
// configuration.
//
// The frame path runs inside the readable notification of remoteSock, on the agent's
// one event loop, for at most maxProcessTime per run; a frame is read once into one
// buffer on the stack and changed in place by R2L::decapFrame. A frame that cannot be
// forwarded is dropped, traced and counted through one exit: nothing is thrown and no
// error is returned. The readable watch is on only while localSock is open, so a
// datagram or a socket error that cannot be handled is never left to wake the loop
// again and again.
//
// The class family is spread over files by concern: Remote2LocalForwarderSm.cpp (the
// manager and the per-VTI lifecycle), R2LFrameLoop.cpp (the frame loop and its drop
// exit), R2LSockets.cpp, R2LVniTable.cpp and R2LMembership.cpp; the per-frame function
// is R2LFramePath.h.
#pragma once

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <cstdint>
#include <memory>

#include "agent/VxlanAgentCounter.h"
#include "forwarding/DeviceWaits.h"
#include "forwarding/ForwardingTrace.h"
#include "forwarding/R2LFramePath.h"
#include "frames/LocalFrameHdr.h"
#include "platform/core/Instance.h"
#include "platform/core/Reactor.h"
#include "platform/loop/FileDescriptor.h"
#include "platform/os/PacketRxRing.h"
#include "platform/os/SysCalls.h"
#include "platform/status/interface/KernelNetworkInfo.h"
#include "platform/status/mlag/MlagStatus.h"
#include "platform/status/routing/IgmpApplicationConfig.h"
#include "platform/status/routing/PimApplicationConfig.h"
#include "platform/status/vxlan/BumStatus.h"
#include "platform/status/vxlan/VniToVlanMaps.h"
#include "platform/status/vxlan/VtiStatusDir.h"
#include "platform/status/vxlan/VxlanHwStatus.h"

namespace Vxlan {

class Remote2LocalForwarderSm : public VtiStatusDir::NotifieeConst {
 public:
  class LumVtiStatusSm;

  // The constructor's inputs, in order.
  struct Inputs {
    Lum::Ptr<VtiStatusDir> vtiStatusDir;
    Lum::Ptr<VxlanHwStatusDir> vxHwStatusDir;
    Lum::Ptr<Routing::Igmp::Application::Config> igmpConfig;
    Lum::Ptr<Routing::Pim::Application::Config> pimConfig;
    Lum::Ptr<const BumStatus> vxBumStatus;
    Lum::Ptr<VniToVlanMaps> vniToVlanMaps;
    Lum::Ptr<const KernelNetworkInfo::Root> kernelNetInfoRoot;
    Lum::Ptr<VxlanAgentCounter> vxAgentCounter;
    Lum::Ptr<const Mlag::Status> mlagStatus;
    bool operator==(const Inputs&) const = default;
  };

  // Reactors on the inputs. They react to nothing at this level: they hold their
  // entity for the per-VTI machines, which reach it through their parent.
  class LumVxHwStatusDir
      : public Lum::NestedReactor<Remote2LocalForwarderSm, VxlanHwStatusDir::NotifieeConst> {};
  class LumIgmpConfig : public Lum::NestedReactor<Remote2LocalForwarderSm,
                                                  Routing::Igmp::Application::Config::Notifiee> {};
  class LumVxBumStatus
      : public Lum::NestedReactor<Remote2LocalForwarderSm, BumStatus::NotifieeConst> {};
  class LumVniToVlanMaps
      : public Lum::NestedReactor<Remote2LocalForwarderSm, VniToVlanMaps::Notifiee> {};
  class LumKernelNetInfoRoot
      : public Lum::NestedReactor<Remote2LocalForwarderSm, KernelNetworkInfo::Root::NotifieeConst> {
  };
  class LumMlagStatus
      : public Lum::NestedReactor<Remote2LocalForwarderSm, Mlag::Status::NotifieeConst> {};

  // Builds one machine per status of the directory (none without a directory).
  explicit Remote2LocalForwarderSm(const Inputs& inputs);
  ~Remote2LocalForwarderSm() override;
  // The inputs that the frame path needs, the others empty: for tests and benchmarks.
  static Inputs inputs(const Lum::Ptr<VniToVlanMaps>& maps,
                       const Lum::Ptr<VxlanAgentCounter>& counter) {
    Inputs in;
    in.vniToVlanMaps = maps;
    in.vxAgentCounter = counter;
    return in;
  }

  const Lum::Ptr<VtiStatusDir>& vtiStatusDir() const { return inputs_.vtiStatusDir; }
  const Lum::Ptr<VxlanHwStatusDir>& vxHwStatusDir() const { return inputs_.vxHwStatusDir; }
  const Lum::Ptr<Routing::Igmp::Application::Config>& igmpConfig() const {
    return inputs_.igmpConfig;
  }
  const Lum::Ptr<Routing::Pim::Application::Config>& pimConfig() const { return inputs_.pimConfig; }
  const Lum::Ptr<const BumStatus>& vxBumStatus() const { return inputs_.vxBumStatus; }
  const Lum::Ptr<VniToVlanMaps>& vniToVlanMaps() const { return inputs_.vniToVlanMaps; }
  const Lum::Ptr<const KernelNetworkInfo::Root>& kernelNetInfoRoot() const {
    return inputs_.kernelNetInfoRoot;
  }
  VxlanAgentCounter* vxAgentCounter() const { return inputs_.vxAgentCounter.ptr(); }
  const Lum::Ptr<const Mlag::Status>& mlagStatus() const { return inputs_.mlagStatus; }

  // The machines, one per VTI of the directory.
  Lum::Ptr<LumVtiStatusSm> vtiStatusSm(const Wire::IntfId& id) const;
  size_t vtiStatusSmSize() const;
  Lum::Ptr<LumVtiStatusSm> vtiStatusSmIs(const Lum::Ptr<const VtiStatus>& status);
  Lum::Ptr<LumVtiStatusSm> vtiStatusSmDel(const Wire::IntfId& id);
  void vtiStatusSmDelAll();

  void onVtiStatus(const Wire::IntfId& id) override;
  void onVtiStatus() override;

 protected:
  void onNotifier() override;

 private:
  // Makes the machines match the directory: one per status, none for a gone one.
  void syncVtiStatusSm();

  Inputs inputs_;
  Lum::Nested<LumVxHwStatusDir> vxHwStatusDirReactor_{this};
  Lum::Nested<LumIgmpConfig> igmpConfigReactor_{this};
  Lum::Nested<LumVxBumStatus> vxBumStatusReactor_{this};
  Lum::Nested<LumVniToVlanMaps> vniToVlanMapsReactor_{this};
  Lum::Nested<LumKernelNetInfoRoot> kernelNetInfoRootReactor_{this};
  Lum::Nested<LumMlagStatus> mlagStatusReactor_{this};
  // Last, so that the machines go first and still find the inputs while they die.
  Lum::Collection<Remote2LocalForwarderSm, LumVtiStatusSm, Wire::IntfId, Lum::Ptr<const VtiStatus>>
      vtiStatusSm_{this, "Vxlan::Remote2LocalForwarderSm::vtiStatusSm", {"vtiStatus"}};
};

// The frames of one batched read of the remote socket and the writes made of them:
// allocated once per machine in batch mode, so the frame path allocates nothing.
struct R2LBatch {
  static constexpr unsigned kFrames = 32;
  static constexpr uint32_t kFrameBytes = 10000;

  R2LBatch();
  uint8_t frames[kFrames][kFrameBytes];
  iovec inIov[kFrames];
  mmsghdr in[kFrames];
  iovec outIov[kFrames];
  mmsghdr out[kFrames];
  sockaddr_un testAddr;
  // Frames read so far and the next one to handle: a run that its budget ends keeps
  // the rest for the next run.
  unsigned count = 0;
  unsigned next = 0;
  // The remote socket's receive ring, when it has one (not in test mode): frames are
  // then read and rewritten in place in it, and written out from it.
  std::unique_ptr<Lum::PacketRxRing> ring;
  // Slots for frames as long as `frames`' buffers take, cut where they cut. 2048 of
  // them are 20 MiB and ride out 2 ms at 1 Mpps: a slot is a slot whatever the frame's
  // size, where the socket buffer of the one-frame mode holds more small frames.
  static constexpr uint32_t kRingSlotBytes = Lum::PacketRxRing::slotBytesFor(kFrameBytes);
  static constexpr uint32_t kRingSlots = 2048;
};

class Remote2LocalForwarderSm::LumVtiStatusSm : public VtiStatus::NotifieeConst {
 public:
  static constexpr uint32_t kFrameBufferSize = 10000;
  // The remote socket's receive buffer: at about 1 KiB of kernel memory per small
  // frame, some 16,000 frames, which rides out a stall of 15 ms at 1 Mpps.
  static constexpr int kRemoteRcvBuf = 16 << 20;
  static constexpr double kDefaultMaxProcessTime = 0.1;

  // The hardware agent's VTI entries; the portId of the VTI is what the frame header
  // carries.
  class LumVxHwStatusDir
      : public Lum::NestedReactor<LumVtiStatusSm, VxlanHwStatusDir::NotifieeConst> {
   public:
    void onVxlanHwStatus(const Wire::IntfId& id) override { s()->handleVxlanHwStatus(id); }
    void onVxlanHwStatus() override { s()->handleVxlanHwStatusAll(); }
    void onNotifier() override { s()->handleVxlanHwStatusAll(); }
  };
  // The flood group and the replication mode.
  class LumVxBumStatus : public Lum::NestedReactor<LumVtiStatusSm, BumStatus::NotifieeConst> {
   public:
    void onBumMcastGrp(Bridging::VlanId vlan) override { s()->handleBumMcastGrp(vlan); }
    void onBumMcastGrp() override { s()->handleBumMcastGrp(); }
    void onBumReplicationMode() override { s()->handleMcastGrpDecap(); }
    void onNotifier() override {
      s()->handleBumMcastGrp();
      s()->handleMcastGrpDecap();
    }
  };
  // The MLAG state decides whether this switch joins the decapsulation groups.
  class LumMlagStatus : public Lum::NestedReactor<LumVtiStatusSm, Mlag::Status::NotifieeConst> {
   public:
    void onMlagState() override { s()->handleMcastGrpDecap(); }
    void onNotifier() override { s()->handleMcastGrpDecap(); }
  };
  // The kernel devices: the local socket needs "txraw".
  class LumKernelNetworkInfoRoot
      : public Lum::NestedReactor<LumVtiStatusSm, KernelNetworkInfo::Root::NotifieeConst> {
   public:
    void onInterfaceByName(const Lum::String8& name) override { s()->handleKernelDevice(name); }
    void onNotifier() override { s()->handleKernelDevice(); }
  };
  // Holds the VNI to VLAN table of the VTI for the frame path.
  class LumVniToVlanForVti : public Lum::NestedReactor<LumVtiStatusSm, VniToVlanMap::Notifiee> {};
  // The readable watch on remoteSock.
  class LumFileDescriptor
      : public Lum::NestedReactor<LumVtiStatusSm, Lum::FileDescriptor::Notifiee> {
   public:
    void onReadableCount() override { s()->handleFileDescriptor(s()->remoteSock()); }
  };
  // One per hardware status entry. The entry of the machine's own VTI gives its
  // portId; entries of other VTIs are followed but never change it.
  class LumVxHwStatusSm : public VxlanHwStatus::NotifieeConst {
   public:
    LumVxHwStatusSm(const Lum::Ptr<const VxlanHwStatus>& status, LumVtiStatusSm* owner);
    static Wire::IntfId lumKeyOf(const Lum::Ptr<const VxlanHwStatus>& s) { return s->intfId(); }
    LumVtiStatusSm* lumVtiStatusSm() const { return lumVtiStatusSm_; }
    void parentIs(LumVtiStatusSm* owner) { lumVtiStatusSm_ = owner; }

    void handlePortId();
    void onPortId() override { handlePortId(); }

   protected:
    void onNotifier() override { handlePortId(); }

   private:
    LumVtiStatusSm* lumVtiStatusSm_;
  };

  LumVtiStatusSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                 const Lum::Ptr<const VtiStatus>& status, Remote2LocalForwarderSm* parent);
  // The form the manager's collection builds, in the manager's activity.
  LumVtiStatusSm(const Lum::Ptr<const VtiStatus>& status, Remote2LocalForwarderSm* parent)
      : LumVtiStatusSm(parent ? parent->lumFwkActivity() : nullptr, status, parent) {}
  static Wire::IntfId lumKeyOf(const Lum::Ptr<const VtiStatus>& s) { return s->intfId(); }

  const Wire::IntfId& intfId() const { return intfId_; }
  Remote2LocalForwarderSm* parent() const { return parent_; }
  void parentIs(Remote2LocalForwarderSm* p) { parent_ = p; }

  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }
  int32_t remoteSock() const { return remoteSock_; }
  // A ring belongs to the socket it was made on.
  void remoteSockIs(int32_t s) {
    if (batch_ && s != remoteSock_) batch_->ring.reset();
    remoteSock_ = s;
  }
  int32_t localSock() const { return localSock_; }
  int32_t portSink() const { return portSink_; }
  // The ingress drop's link (UdpIngressDrop.h), -1 when the kernel refused it.
  int32_t ingressDrop() const { return portDrop_; }
  void localSockIs(int32_t s) { localSock_ = s; }
  double maxProcessTime() const { return maxProcessTime_; }
  void maxProcessTimeIs(double t) { maxProcessTime_ = t; }
  Wire::IpAddr floodMcastGrp() const { return floodMcastGrp_; }
  void floodMcastGrpIs(Wire::IpAddr g) { floodMcastGrp_ = g; }
  HwPortId portId() const { return portId_; }
  void portIdIs(HwPortId p) { portId_ = p; }
  LumVniToVlanForVti* vniToVlanForVti() const { return vniToVlanForVti_.get(); }
  void vniToVlanForVtiIs(const Lum::Ptr<VniToVlanMap>& m) { vniToVlanForVti_.is(m); }
  LumFileDescriptor* fileDescriptor() const { return fileDescriptor_.get(); }
  void fileDescriptorIs(const Lum::Ptr<Lum::FileDescriptor>& fd) { fileDescriptor_.is(fd); }
  LumVxHwStatusDir* vxHwStatusDir() const { return vxHwStatusDir_.get(); }
  void vxHwStatusDirIs(const Lum::Ptr<const VxlanHwStatusDir>& d) { vxHwStatusDir_.is(d); }
  LumVxBumStatus* vxBumStatus() const { return vxBumStatus_.get(); }
  void vxBumStatusIs(const Lum::Ptr<const BumStatus>& b) { vxBumStatus_.is(b); }
  LumMlagStatus* mlagStatus() const { return mlagStatus_.get(); }
  void mlagStatusIs(const Lum::Ptr<const Mlag::Status>& m) { mlagStatus_.is(m); }
  LumKernelNetworkInfoRoot* kernelNetworkInfoRoot() const { return kernelNetworkInfoRoot_.get(); }
  void kernelNetworkInfoRootIs(const Lum::Ptr<const KernelNetworkInfo::Root>& r) {
    kernelNetworkInfoRoot_.is(r);
  }
  Lum::Ptr<LumVxHwStatusSm> vxHwStatusSm(const Wire::IntfId& id) const { return vxHwStatusSm_(id); }
  size_t vxHwStatusSmSize() const { return vxHwStatusSm_.size(); }
  Lum::Ptr<LumVxHwStatusSm> vxHwStatusSmIs(const Lum::Ptr<const VxlanHwStatus>& status) {
    return vxHwStatusSm_.is(status);
  }
  Lum::Ptr<LumVxHwStatusSm> vxHwStatusSmDel(const Wire::IntfId& id) {
    return vxHwStatusSm_.del(id);
  }

  // Takes the status of its VTI from the directory, the other inputs from the parent,
  // rebuilds the VNI table and, for an interface that is up, opens the sockets.
  void handleInitialized();

  // The lifecycle.
  void handleOperStatus();
  void handleControllerMode();
  // These four rebuild the remote socket, and open the local one with it when it is
  // closed (see rebuildRemoteSocket).
  void handleUdpPort();
  void handleSrcIpIntf();
  void handleSrcIntfKernelName();
  void handleLocalVtepAddr();
  void handleVxlanHwStatus(const Wire::IntfId& id);
  void handleVxlanHwStatus();
  void doPrepareToDie() override;

  // The sockets.
  void createRemoteSocket();
  void doConnectSockets();
  void doDisconnectSockets();
  void handleKernelDevice(const Lum::String8& name);
  void handleKernelDevice();

  // The VNI to VLAN table: one VLAN, or a rebuild from the whole status map.
  void handleVlanToVniMap(Bridging::VlanId vlan);
  void handleVlanToVniMap();

  // Multicast membership of the source interface, written as IGMP and PIM
  // configuration.
  void joinMcastGroup(Wire::IpAddr group);
  void leaveMcastGroup(Wire::IpAddr group);
  void handleMcastGrpDecap(Wire::IpAddr group);
  void handleMcastGrpDecap();
  void handleBumMcastGrp(Bridging::VlanId vlan);
  void handleBumMcastGrp();
  // After a rebuild of the remote socket: clears the IGMP configuration and joins the
  // flood group (unless in controller mode) and the decapsulation groups again.
  void doRejoinMcastGroups();

  void onOperStatus() override { handleOperStatus(); }
  void onControllerClientMode() override { handleControllerMode(); }
  void onUdpPort() override { handleUdpPort(); }
  void onLocalVtepAddr() override { handleLocalVtepAddr(); }
  void onSrcIpIntf() override { handleSrcIpIntf(); }
  void onSrcIntfKernelName() override { handleSrcIntfKernelName(); }
  void onFloodMcastGrp() override { handleBumMcastGrp(); }
  void onVlanToVniMap(Bridging::VlanId vlan) override { handleVlanToVniMap(vlan); }
  void onVlanToVniMap() override { handleVlanToVniMap(); }
  void onMcastGrpDecap(Wire::IpAddr group) override { handleMcastGrpDecap(group); }
  void onMcastGrpDecap() override { handleMcastGrpDecap(); }

  // The frame loop: reads `desc` until it is drained or the time budget is spent.
  void handleFileDescriptor(int32_t desc);
  // Batch mode (FRAME_MODE at construction): many frames to a read and to a write.
  void batchModeIs(bool on);
  bool batchMode() const { return batch_ != nullptr; }
  bool hasReceiveRing() const { return batch_ && batch_->ring; }
  // Writes a decapsulated frame to localSock; reopens the socket once on ENETDOWN.
  // Returns what the write returned (with its errno), or 0 for a length that is not
  // positive.
  Lum::SysResult writeDecapdFrame(const uint8_t* frame, int32_t len);
  // Inline: on the frame paths each add is a few instructions (the id is a constant).
  void vxlanCounterInc(VxlanCounterId id, uint32_t count) {
    if (counters_) counters_->vxlanCounterAdd(id, count);
  }
  // The byte dump at level 9 and the headers at level 7, asked for every frame: the
  // level test inline, the text out of line (under the names its lines carry).
  void dumpIfTraced(const char* label, const uint8_t* buf, uint32_t len) {
    if (R2L::trace.enabled(9)) [[unlikely]]
      dump_buf(label, buf, len);
  }
  void dump_buf(const char* label, const uint8_t* buf, uint32_t len);
  // What the frame path checks a frame against, as it stands now.
  R2L::FrameFilter frameFilter() const;
  // For the operator's view (VtiShow): the VTI's VNI table.
  const VniToVlanMap* vniToVlanMap() const { return vniToVlanMapOfVti(); }

  // Replaces localSock with a new socket on the device "txraw".
  void createLocalSocket();
  // Closes `sock` unless it is -1; returns -1 for storing back.
  static int32_t closeAndCheck(int32_t sock);

 protected:
  // A new status: everything it says may differ from the old one.
  void onNotifier() override;

 private:
  // The VNI table for the frame loop, read through the reactor's stored reference: the
  // writable accessor would build a counted reference, two count changes per frame.
  const VniToVlanMap* vniToVlanMapOfVti() const {
    const LumVniToVlanForVti* r = vniToVlanForVti_.get();
    return r ? r->VniToVlanMap::NotifieeConst::notifier().ptr() : nullptr;
  }
  Lum::SysResult sendFrame(const uint8_t* frame, int32_t len);
  void handleBatch(int32_t desc);
  void handleRing(Lum::PacketRxRing& ring);
  // A frame of a batch through the frame path: counted, and queued for the batched
  // write or dropped; whether it was queued.
  bool takeFrame(uint8_t* buf, uint32_t len, const R2L::FrameFilter& filter, unsigned& queued);
  // Frames the ring had no room for, as frames received and lost at the socket.
  void countRingDrops(Lum::PacketRxRing& ring);
  void openRing();
  // Writes the `n` frames queued in the batch; false when a write failed (the run
  // ends, as one frame at a time).
  bool flushBatch(unsigned n);
  // A frame read: its dump, the receive counters and trace. Inline (R2LFrameLoop.cpp
  // alone calls it and the next one): each runs for every frame.
  inline void countReceived(const uint8_t* buf, uint32_t len);
  // A frame's write, `rc` as the call returned it for `len` bytes: the trace and ring
  // record of the one-frame loop's step, which the batch writes carry too.
  inline void traceWrote(ssize_t rc, int32_t len);
  // The one exit of a dropped frame: traces, writes the ring record and counts, as the
  // drop table's row for `why` says. `len` is the frame's length, `detail` what
  // R2L::Decap::detail holds, `err` the errno of a socket failure.
  void dropFrame(R2L::Drop why, uint32_t len, uint32_t detail, int err);
  void traceHeadersIfTraced(const uint8_t* buf, const R2L::Decap& d) const {
    if (R2L::trace.wanted(7)) [[unlikely]]
      traceHeaders(buf, d);
  }
  void traceHeaders(const uint8_t* buf, const R2L::Decap& d) const;
  // Closes the remote socket and, while the interface is up (and has a VTEP address),
  // opens it again, with the local socket first when that one is closed.
  void rebuildRemoteSocket();
  // The readable watch on remoteSock is on exactly while localSock is open: frames
  // read with nowhere to write them would be lost, and frames left unread would wake
  // the level-triggered loop on every pass.
  void syncRemoteWatch();
  // Takes the descriptor out of the readable watch, then closes the remote socket.
  void closeRemoteSocket();
  void growReceiveBuffer();
  void keepOnlyOwnDatagrams();
  // A UDP socket on the VTEP address and port that keeps nothing: see R2LSockets.cpp.
  void openPortSink(int ifIndex);
  void closePortSink();
  // The whole hardware directory: one LumVxHwStatusSm per entry, then our portId.
  void handleVxlanHwStatusAll();
  void syncVxHwStatusSm(const VxlanHwStatusDir* dir);
  bool operUp() const;
  Routing::Igmp::Application::Config* igmpConfig() const;
  Routing::Pim::Application::Config* pimConfig() const;

  Remote2LocalForwarderSm* parent_;
  // The parent's counter table, fixed for the parent's life (its inputs never change).
  VxlanAgentCounter* counters_;
  Wire::IntfId intfId_;
  Lum::Nested<LumVxHwStatusDir> vxHwStatusDir_{this};
  Lum::Nested<LumVxBumStatus> vxBumStatus_{this};
  Lum::Nested<LumMlagStatus> mlagStatus_{this};
  Lum::Nested<LumKernelNetworkInfoRoot> kernelNetworkInfoRoot_{this};
  HwPortId portId_;
  Lum::Collection<LumVtiStatusSm, LumVxHwStatusSm, Wire::IntfId, Lum::Ptr<const VxlanHwStatus>>
      vxHwStatusSm_{
          this, "Vxlan::Remote2LocalForwarderSm::LumVtiStatusSm::vxHwStatusSm", {"vxlanHwStatus"}};
  Lum::Nested<LumVniToVlanForVti> vniToVlanForVti_{this};
  int32_t remoteSock_ = -1;
  int32_t localSock_ = -1;
  int32_t portSink_ = -1;
  int32_t portDrop_ = -1;  // the ingress drop's link
  double maxProcessTime_ = kDefaultMaxProcessTime;
  Lum::Nested<LumFileDescriptor> fileDescriptor_{this};
  Wire::IpAddr floodMcastGrp_;
  bool initialized_ = false;
  // Set when the kernel reports "txraw" gone, cleared when it is back: while set, a
  // rebuilt remote socket waits, unwatched, for the device to bring the pair back.
  bool txRawGone_ = false;
  DeviceWaits deviceWaits_;
  std::unique_ptr<R2LBatch> batch_;
};

}  // namespace Vxlan
