// Vxlan::Local2RemoteForwarderSm::LumVtiStatusSm: the local-to-remote machine of one
// VXLAN tunnel interface. See Local2RemoteForwarderSm.h for the whole direction.
//
// Its six sockets, -1 while closed:
//   localSockHi, localSockLo   packet sockets on "vxlan", frames of type 0x0041 (high)
//                              and 0x0033 (low);
//   remoteSockHi, remoteSockLo raw IPv4 sockets (protocol 255, IP_HDRINCL) that the
//                              encapsulated packets of each priority leave by;
//   arpSock                    Unix datagram socket to the ARP resolver;
//   arpInspectSock             Unix datagram socket bound to "VeltraVxlanArpInspect",
//                              a third source of frames, served with the low budget.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <memory>

#include "agent/DevIfindexPair.h"
#include "forwarding/DeviceWaits.h"
#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RDestinations.h"
#include "forwarding/Local2RemoteForwarderSm.h"
#include "platform/os/PacketRxRing.h"

namespace Vxlan {

// The frames of one batched read of a local socket and the packets queued for one
// batched write: allocated once per socket in batch mode, so the path allocates
// nothing. A message is the outer header (its own copy, since each destination has
// its own address) and the user frame, which stays where it was read.
struct L2RBatch {
  static constexpr unsigned kFrames = 16;
  static constexpr unsigned kMsgs = 64;

  L2RBatch();
  L2R::FrameBuffer frames[kFrames];
  iovec inIov[kFrames];
  mmsghdr in[kFrames];
  // The senders' credentials, which the ARP inspection socket carries.
  alignas(cmsghdr) uint8_t creds[kFrames][CMSG_SPACE(sizeof(ucred))];
  // Frames read so far and the next to handle: a run that its budget ends keeps the
  // rest for the next run, in order.
  unsigned count = 0;
  unsigned next = 0;

  uint8_t hdrs[kMsgs][L2R::kOuterHdrLen];
  iovec outIov[kMsgs][2];
  sockaddr_in to[kMsgs];
  mmsghdr out[kMsgs];
  struct Meta {
    uint32_t vlan;
    bool arpFlag;
  } meta[kMsgs];
  unsigned queued = 0;

  // The socket's receive ring, when it has one (not in test mode): frames are then
  // turned into packets where they lie, the ring slot's free bytes in front of them
  // serving as the head room, and sent from there.
  std::unique_ptr<Lum::PacketRxRing> ring;
  static constexpr uint32_t kRingSlotBytes =
      Lum::PacketRxRing::slotBytesFor(L2R::kReadSize, L2R::kHeadroom);
  static constexpr uint32_t kRingSlots = 1024;
};

class Local2RemoteForwarderSm::LumVtiStatusSm : public VtiStatus::NotifieeConst,
                                                private L2R::ArpRequestHook {
 public:
  static constexpr double kDefaultMaxProcessTime = 0.1;

  // Reactors that hold an entity and react to nothing (yet).
  template <class N>
  class Holder : public Lum::NestedReactor<LumVtiStatusSm, N> {};
  // The flood group: the first group of bumMcastGrp, whichever VLAN it is for.
  class LumVxBumStatus : public Lum::NestedReactor<LumVtiStatusSm, BumStatus::NotifieeConst> {
   public:
    void onBumMcastGrp(Bridging::VlanId vlan) override { s()->handleBumMcastGrp(vlan); }
    void onBumMcastGrp() override { s()->handleBumMcastGrp(); }
  };
  // The kernel devices: the local sockets follow "vxlan".
  class LumKernelNetworkInfoRoot
      : public Lum::NestedReactor<LumVtiStatusSm, KernelNetworkInfo::Root::NotifieeConst> {
   public:
    void onInterfaceByName(const Lum::String8& name) override { s()->handleKernelDevice(name); }
    void onNotifier() override { s()->handleKernelDevice(); }
  };
  // The readable watches of the three sockets that frames come from.
  class LumFileDescriptorHi
      : public Lum::NestedReactor<LumVtiStatusSm, Lum::FileDescriptor::Notifiee> {
   public:
    void onReadableCount() override { s()->handleFileDescriptorHi(); }
  };
  class LumFileDescriptorLo
      : public Lum::NestedReactor<LumVtiStatusSm, Lum::FileDescriptor::Notifiee> {
   public:
    void onReadableCount() override { s()->handleFileDescriptorLo(); }
  };
  class LumFileDescriptorArpInspect
      : public Lum::NestedReactor<LumVtiStatusSm, Lum::FileDescriptor::Notifiee> {
   public:
    void onReadableCount() override { s()->handleFileDescriptorArpInspect(); }
  };

  // ---- Access ports (L2RAccessPorts.cpp) ----------------------------------------
  // What the frame path asks of a frame's source index: is it the MLAG peer link
  // (peerLinkIfIndex, 0 for none) or a port in dot1q-tunnel mode (dot1QTunnelIfIndex)?
  // A port of mode 2 has a pair of device name and kernel index in
  // dot1QTunnelIntfToDevIfindex, with index 0 while the kernel lacks its device, and
  // its index in dot1QTunnelIfIndex once known. One LumIntfConfig follows each port's
  // switchport settings, one LumIntfStatus each interface's device name, and the
  // kernel's devices (handleKernelDevice) fill in the indexes. The port reactors keep
  // the VTI's id in `intfId_`, as every trace line of this machine names it, and their
  // own port in `port_`.
  class LumIntfConfig : public Bridging::SwitchIntfConfig::NotifieeConst {
   public:
    LumIntfConfig(const Lum::Ptr<const Bridging::SwitchIntfConfig>& config, LumVtiStatusSm* owner);
    static Wire::IntfId lumKeyOf(const Lum::Ptr<const Bridging::SwitchIntfConfig>& c) {
      return c->intfId();
    }
    void parentIs(LumVtiStatusSm* owner) { owner_ = owner; }
    const Wire::IntfId& port() const { return port_; }
    bool initialized() const { return initialized_; }

    void handleInitialized();
    void handleDot1QTunnelConfig();
    // Takes the port out of both maps.
    void cleanup();
    void onSwitchportModeAndNativeVlan() override { handleDot1QTunnelConfig(); }
    void onNotifier() override { handleDot1QTunnelConfig(); }
    // A port whose configuration is gone is no tunnel port any more.
    void doPrepareToDie() override { cleanup(); }

   private:
    // The device name of the port's status, its bond's name for a port channel.
    bool deviceNameOf(const Interface::EthIntfStatus& status, Lum::String8& name) const;

    LumVtiStatusSm* owner_;
    Wire::IntfId intfId_;
    Wire::IntfId port_;
    bool initialized_ = false;
  };
  class LumIntfStatus : public Interface::EthIntfStatus::NotifieeConst {
   public:
    LumIntfStatus(const Lum::Ptr<const Interface::EthIntfStatus>& status, LumVtiStatusSm* owner);
    static Wire::IntfId lumKeyOf(const Lum::Ptr<const Interface::EthIntfStatus>& s) {
      return s->intfId();
    }
    void parentIs(LumVtiStatusSm* owner) { owner_ = owner; }

    void handleDevName();
    void onDeviceName() override { handleDevName(); }
    void onNotifier() override { handleDevName(); }

   private:
    // A port channel's device name is an attribute of its own status type, which a
    // reactor on the base type is not told of.
    class LumLagName
        : public Lum::NestedReactor<LumIntfStatus, Interface::EthLagIntfStatus::NotifieeConst> {
     public:
      void onLagDeviceName() override { s()->handleDevName(); }
    };

    LumVtiStatusSm* owner_;
    Wire::IntfId intfId_;
    Wire::IntfId port_;
    Lum::Nested<LumLagName> lagName_{this};
  };
  class LumPeerLinkIntf
      : public Lum::NestedReactor<LumVtiStatusSm, Interface::EthIntfStatus::NotifieeConst> {
   public:
    void onDeviceName() override { s()->handleMlagStateOrPeerLinkIntf(); }
    void onNotifier() override { s()->handleMlagStateOrPeerLinkIntf(); }
  };
  class LumMlagStatus : public Lum::NestedReactor<LumVtiStatusSm, Mlag::Status::NotifieeConst> {
   public:
    void onMlagState() override { s()->handleMlagStateOrPeerLinkIntf(); }
    void onPeerLinkIntf() override { s()->handlePeerLinkIntf(); }
    void onNotifier() override { s()->handlePeerLinkIntf(); }
  };
  class LumBridgingConfig
      : public Lum::NestedReactor<LumVtiStatusSm, Bridging::Config::NotifieeConst> {
   public:
    void onSwitchIntfConfig(const Wire::IntfId& port) override {
      s()->handleSwitchIntfConfig(port);
    }
    void onSwitchIntfConfig() override { s()->syncIntfConfig(); }
    void onNotifier() override { s()->syncIntfConfig(); }
  };
  class LumIntfStatusDir
      : public Lum::NestedReactor<LumVtiStatusSm, Interface::EthIntfStatusDir::NotifieeConst> {
   public:
    void onIntfStatus(const Wire::IntfId& intf) override { s()->handleIntfStatus(intf); }
    void onIntfStatus() override { s()->syncIntfStatus(); }
    void onNotifier() override { s()->syncIntfStatus(); }
  };
  using DevIfindexTable = Lum::ValueMap<Wire::IntfId, DevIfindexPair>;

  const DevIfindexTable& dot1QTunnelIntfToDevIfindex() const {
    return dot1QTunnelIntfToDevIfindex_;
  }
  DevIfindexPair dot1QTunnelIntfToDevIfindex(const Wire::IntfId& port) const {
    return dot1QTunnelIntfToDevIfindex_(port);
  }
  void dot1QTunnelIntfToDevIfindexIs(const Wire::IntfId& port, const DevIfindexPair& pair) {
    dot1QTunnelIntfToDevIfindex_.is(port, pair);
  }
  void dot1QTunnelIntfToDevIfindexDel(const Wire::IntfId& port) {
    dot1QTunnelIntfToDevIfindex_.del(port);
  }
  void dot1QTunnelIntfToDevIfindexDelAll() { dot1QTunnelIntfToDevIfindex_.delAll(); }
  Lum::Ptr<LumIntfConfig> intfConfig(const Wire::IntfId& port) const { return intfConfig_(port); }
  Lum::Ptr<LumIntfStatus> intfStatus(const Wire::IntfId& intf) const { return intfStatus_(intf); }
  // The status of the MLAG peer link while it has one.
  const Interface::EthIntfStatus* peerLinkIntf() const {
    return peerLinkIntf_ ? peerLinkIntf_->notifier().ptr() : nullptr;
  }
  const Mlag::Status* mlagStatus() const {
    return mlagStatus_ ? mlagStatus_->notifier().ptr() : nullptr;
  }
  const Interface::EthIntfStatusDir* intfStatusDir() const {
    return intfStatusDir_ ? intfStatusDir_->notifier().ptr() : nullptr;
  }
  const KernelNetworkInfo::Root* kernelNetworkInfoRoot() const {
    return kernelNetworkInfoRoot_ ? kernelNetworkInfoRoot_->notifier().ptr() : nullptr;
  }

  void handleMlagStateOrPeerLinkIntf();
  // The peer link's status reactor follows Mlag::Status::peerLinkIntf.
  void handlePeerLinkIntf();
  void handleSwitchIntfConfig(const Wire::IntfId& port);
  void syncIntfConfig();
  void handleIntfStatus(const Wire::IntfId& intf);
  void syncIntfStatus();

  LumVtiStatusSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                 const Lum::Ptr<const VtiStatus>& status, Local2RemoteForwarderSm* owner);
  // The form the manager's collection builds, in the manager's activity.
  LumVtiStatusSm(const Lum::Ptr<const VtiStatus>& status, Local2RemoteForwarderSm* owner)
      : LumVtiStatusSm(owner ? owner->lumFwkActivity() : nullptr, status, owner) {}
  static Wire::IntfId lumKeyOf(const Lum::Ptr<const VtiStatus>& s) { return s->intfId(); }

  const Wire::IntfId& intfId() const { return intfId_; }
  Local2RemoteForwarderSm* local2RemoteForwarderSm() const { return owner_; }
  void parentIs(Local2RemoteForwarderSm* owner) { owner_ = owner; }

  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }
  int32_t localSockHi() const { return localSockHi_; }
  // A ring belongs to the socket it was made on.
  void localSockHiIs(int32_t s) {
    if (batches_[0] && s != localSockHi_) batches_[0]->ring.reset();
    localSockHi_ = s;
  }
  int32_t localSockLo() const { return localSockLo_; }
  void localSockLoIs(int32_t s) {
    if (batches_[1] && s != localSockLo_) batches_[1]->ring.reset();
    localSockLo_ = s;
  }
  int32_t remoteSockHi() const { return remoteSockHi_; }
  void remoteSockHiIs(int32_t s) { remoteSockHi_ = s; }
  int32_t remoteSockLo() const { return remoteSockLo_; }
  void remoteSockLoIs(int32_t s) { remoteSockLo_ = s; }
  int32_t arpSock() const { return arpSock_; }
  void arpSockIs(int32_t s) { arpSock_ = s; }
  int32_t arpInspectSock() const { return arpInspectSock_; }
  void arpInspectSockIs(int32_t s) { arpInspectSock_ = s; }
  double maxProcessTimeHi() const { return maxProcessTimeHi_; }
  void maxProcessTimeHiIs(double t) { maxProcessTimeHi_ = t; }
  double maxProcessTimeLo() const { return maxProcessTimeLo_; }
  void maxProcessTimeLoIs(double t) { maxProcessTimeLo_ = t; }
  bool highPriorityNotFinished() const { return highPriorityNotFinished_; }
  void highPriorityNotFinishedIs(bool v) { highPriorityNotFinished_ = v; }
  Wire::IpAddr floodMcastGrp() const { return floodMcastGrp_; }
  void floodMcastGrpIs(Wire::IpAddr g) { floodMcastGrp_ = g; }
  uint32_t peerLinkIfIndex() const { return peerLinkIfIndex_; }
  void peerLinkIfIndexIs(uint32_t i) { peerLinkIfIndex_ = i; }
  const L2R::IfIndexTable& dot1QTunnelIfIndex() const { return dot1QTunnelIfIndex_; }
  void dot1QTunnelIfIndexIs(uint32_t ifindex, bool v) { dot1QTunnelIfIndex_.is(ifindex, v); }
  void dot1QTunnelIfIndexDel(uint32_t ifindex) { dot1QTunnelIfIndex_.del(ifindex); }
  void dot1QTunnelIfIndexDelAll() { dot1QTunnelIfIndex_.delAll(); }
  Lum::FileDescriptor* fileDescriptorHi() const { return descriptorOf(fileDescriptorHi_.get()); }
  void fileDescriptorHiIs(const Lum::Ptr<Lum::FileDescriptor>& fd) { fileDescriptorHi_.is(fd); }
  Lum::FileDescriptor* fileDescriptorLo() const { return descriptorOf(fileDescriptorLo_.get()); }
  void fileDescriptorLoIs(const Lum::Ptr<Lum::FileDescriptor>& fd) { fileDescriptorLo_.is(fd); }
  Lum::FileDescriptor* fileDescriptorArpInspect() const {
    return descriptorOf(fileDescriptorArpInspect_.get());
  }
  void fileDescriptorArpInspectIs(const Lum::Ptr<Lum::FileDescriptor>& fd) {
    fileDescriptorArpInspect_.is(fd);
  }

  // The lifecycle.
  void handleInitialized();
  void handleOperStatus();
  void handleControllerMode();
  void handleLocalVtepAddr();
  void handleBumMcastGrp();
  void handleBumMcastGrp(Bridging::VlanId vlanId);
  void handleKernelDevice(const Lum::String8& name);
  void handleKernelDevice();
  void doPrepareToDie() override;

  void onOperStatus() override { handleOperStatus(); }
  void onControllerClientMode() override { handleControllerMode(); }
  void onLocalVtepAddr() override { handleLocalVtepAddr(); }
  void onFloodMcastGrp() override { handleBumMcastGrp(); }
  // The frame path's VLAN to VNI table follows the status's map entry by entry.
  void onVlanToVniMap(Bridging::VlanId vlan) override {
    vniByVlan_.entryIs(vlan, status()->vlanToVniMap(vlan));
  }
  void onVlanToVniMap() override { vniByVlan_.is(status()->vlanToVniMap()); }

  // The sockets.
  static int32_t closeAndCheck(int32_t sock);
  void createLocalSocket();
  void createRemoteSocket();
  void createArpSocket();
  void createArpInspectSocket();
  void doConnectSockets();
  void doDisconnectSockets();

  // Batch mode (FRAME_MODE at construction): many frames to a read and to a write.
  void batchModeIs(bool on);
  bool batchMode() const { return batches_[0] != nullptr; }
  // Both local sockets read from receive rings.
  bool hasReceiveRings() const;

  // The frame path.
  void handleFileDescriptorHi();
  void handleFileDescriptorLo();
  void handleFileDescriptorArpInspect();
  void handleFrames(int32_t localSock, int32_t remoteSock);
  // Inline: on the frame paths each add is a few instructions (the id is a constant).
  void vxlanCounterInc(VxlanCounterId id, uint32_t count) {
    if (counters_) counters_->vxlanCounterAdd(id, count);
  }
  // What the frame path checks a frame against and builds its header from, as it
  // stands now.
  L2R::EncapFilter encapFilter();
  // For the operator's view (VtiShow): the flood lists and the learned hosts that
  // destinations are chosen from.
  const BumStatus* bumStatus() const {
    return vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  }
  const FdbStatus* fdbStatus() const {
    return vxFdbStatus_ ? vxFdbStatus_->notifier().ptr() : nullptr;
  }

  // Destination selection: a flood list, or one address in host order (0: none). The
  // list is the kept choice's: it lives until the next choice, and the frame path asks
  // for none while it walks one (no reference count moves per frame).
  const BumVtepList* getRemoteVtepAddr(const Wire::EthAddr& dst, uint32_t vlan, uint32_t& hostIp);
  // The same choice, counting nothing (L2RDestinations.h); the last one is kept.
  using Destinations = L2R::Destinations;
  const Destinations& destinationsOf(const Wire::EthAddr& dst, uint32_t vlan) const {
    if (const Destinations* kept = keptDestinations_.find(dst, vlan)) [[likely]]
      return *kept;
    return chooseAndKeep(dst, vlan);
  }
  const Destinations& chooseAndKeep(const Wire::EthAddr& dst, uint32_t vlan) const;
  Destinations choose(const Wire::EthAddr& dst, uint32_t vlan) const;
  // `how`, when given, receives the words of the choice.
  Lum::Ptr<const BumVtepList> getHostIPOrVtepList(const Wire::EthAddr& dst, uint32_t vlan,
                                                  uint32_t& hostIp,
                                                  const char** how = nullptr) const;
  // The one VTEP of a send-to-any list (host order, 0 for none); `miss` the counter of
  // why none or why without BFD (L2R::kNoCounter when BFD chose it).
  uint32_t getVtepSendToAny(const Lum::Ptr<const BumVtepList>& vteps, uint32_t& miss) const;

  // ARP on the frame path: whether a request is to be flooded, and the rewrite of a
  // flooded one.
  bool arpHERRequired(uint32_t vlan, uint32_t arpTargetIp);
  // Whether the request's sender MAC was replaced; counted unless `count` is false (the
  // packet trace).
  bool checkAndRewriteNakedArpRequest(uint8_t* frame, uint32_t l2Offset, VniOrNone vni,
                                      bool count = true);
  // The local VTEP address or the virtual one: never sent to.
  bool ownAddress(Wire::IpAddr addr) const;
  // The bridge MAC a rewritten request carries: the MLAG primary's when the peer is
  // primary and its MAC is known, else this switch's own.
  Wire::EthAddr workingBridgeMac() const;

 private:
  static Lum::FileDescriptor* descriptorOf(const Lum::FileDescriptor::Notifiee* r) {
    return r ? r->notifier().ptr() : nullptr;
  }
  bool herRequired(uint32_t vlan, uint32_t targetIp) override {
    return arpHERRequired(vlan, targetIp);
  }
  void rewriteNakedRequest(uint8_t* frame, uint32_t l2Offset, VniOrNone vni) override {
    checkAndRewriteNakedArpRequest(frame, l2Offset, vni);
  }
  bool operUp() const;
  // The one exit of a dropped frame: traces, writes the ring record and counts, as the
  // drop table's row for `why` says.
  void dropFrame(L2R::Drop why, uint32_t detail, int err);
  // Asked for every frame: inline, whether there is anything to count or trace.
  void traceAcceptedIfNeeded(const L2R::Encap& e) {
    if (e.tunnelPort || e.tagsRemoved != 0 || L2R::trace.wanted(7)) [[unlikely]] {
      traceAccepted(e);
    }
  }
  void traceAccepted(const L2R::Encap& e);
  // One frame read: counted, encapsulated, its destinations chosen, and sent to each
  // (or queued in `batch`); whether it was forwarded (only those test the budget).
  bool forwardFrame(uint8_t* bytes, uint32_t len, bool hi, const L2R::EncapFilter& filter,
                    int32_t remoteSock, L2RBatch* batch);
  void budgetSpent(bool hi);
  // The high socket drained: low work may go on (and the batches' frames with it).
  void highPriorityDrained();
  void sendToVtep(uint8_t* hdr, const L2R::Encap& e, int32_t remoteSock, Wire::IpAddr addr);
  static sockaddr_in vtepAddress(const uint8_t* hdr, Wire::IpAddr addr);
  // A send's outcome in the counters and traces; `err` 0 for success.
  void sentToVtep(int err, int32_t remoteSock, Wire::IpAddr addr, uint32_t bytes) {
    if (err != 0) [[unlikely]]
      return sendFailed(err, remoteSock, addr);
    vxlanCounterInc(VxlanCounterId::l2rTxFrames, 1);
    vxlanCounterInc(VxlanCounterId::l2rTxBytes, bytes);
  }
  void sendFailed(int err, int32_t remoteSock, Wire::IpAddr addr);
  // `hdr`: the 36-byte outer header; `frame`: the user frame behind it.
  void sendToArpResolver(const uint8_t* hdr, const uint8_t* frame, uint32_t length, uint32_t vlan);
  // Batch mode: see L2RBatch.cpp.
  L2RBatch* batchFor(int32_t localSock) const;
  void handleFramesBatch(int32_t localSock, int32_t remoteSock, L2RBatch& b);
  // The ARP inspection socket takes frames only from this user or root: whether the
  // datagram received into `m` is from one of them (counted and traced if not).
  bool inspectedSenderAllowed(const msghdr& m);
  // A read of the ARP inspection socket that passes over datagrams of other users.
  Lum::SysResult readInspected(int32_t sock, uint8_t* buf, size_t len);
  void handleRingFrames(int32_t localSock, int32_t remoteSock, L2RBatch& b);
  // Frames a local socket's ring had no room for, as frames received and read errors.
  void countRingDrops(Lum::PacketRxRing& ring, bool hi);
  // Gives the local socket of batch `which` (0 high, 1 low) its ring, before its bind.
  void openRing(int which, int32_t sock);
  void queueToVtep(L2RBatch& b, const uint8_t* hdr, const L2R::Encap& e, int32_t remoteSock,
                   Wire::IpAddr addr);
  void flushSends(L2RBatch& b, int32_t remoteSock);
  void deferRun(int32_t localSock);
  void dumpBuf(const char* label, const uint8_t* buf, uint32_t len);
  // Closes both remote sockets without checking, after a multicast step failed.
  void dropRemoteSockets();
  // Multicast on the source interface and both remote sockets; false when a step
  // failed and the remote sockets are closed.
  bool enableMulticast();
  void setRemoteOption(int level, int name, int value, const char* what);
  Lum::Ptr<Lum::FileDescriptor> newFileDescriptor(const char* name, int32_t sock);
  const VtiStatus* status() const { return notifier().ptr(); }

  Local2RemoteForwarderSm* owner_;
  // The owner's counter table, fixed for the owner's life (its inputs never change).
  VxlanAgentCounter* counters_;
  Wire::IntfId intfId_;
  Lum::Nested<Holder<VxlanHwStatusDir::NotifieeConst>> vxHwStatus_{this};
  Lum::Nested<Holder<FdbStatus::NotifieeConst>> vxFdbStatus_{this};
  Lum::Nested<LumVxBumStatus> vxBumStatus_{this};
  Lum::Nested<LumMlagStatus> mlagStatus_{this};
  Lum::Nested<LumBridgingConfig> bridgingConfig_{this};
  Lum::Nested<LumIntfStatusDir> intfStatusDir_{this};
  Lum::Nested<Holder<VxlanStatusDir::NotifieeConst>> vxStatusDir_{this};
  Lum::Nested<LumKernelNetworkInfoRoot> kernelNetworkInfoRoot_{this};
  int32_t localSockHi_ = -1;
  int32_t localSockLo_ = -1;
  int32_t remoteSockHi_ = -1;
  int32_t remoteSockLo_ = -1;
  int32_t arpSock_ = -1;
  int32_t arpInspectSock_ = -1;
  double maxProcessTimeHi_ = kDefaultMaxProcessTime;
  double maxProcessTimeLo_ = kDefaultMaxProcessTime;
  bool highPriorityNotFinished_ = false;
  Lum::Nested<LumFileDescriptorHi> fileDescriptorHi_{this};
  Lum::Nested<LumFileDescriptorLo> fileDescriptorLo_{this};
  Lum::Nested<LumFileDescriptorArpInspect> fileDescriptorArpInspect_{this};
  Wire::IpAddr floodMcastGrp_;
  uint32_t peerLinkIfIndex_ = 0;
  L2R::IfIndexTable dot1QTunnelIfIndex_;
  // The access ports; the maps come first, so that the port reactors, going first,
  // still find them while they die.
  DevIfindexTable dot1QTunnelIntfToDevIfindex_;
  Lum::Nested<LumPeerLinkIntf> peerLinkIntf_{this};
  Lum::Collection<LumVtiStatusSm, LumIntfStatus, Wire::IntfId,
                  Lum::Ptr<const Interface::EthIntfStatus>>
      intfStatus_{this, "Vxlan::Local2RemoteForwarderSm::LumVtiStatusSm::intfStatus", {"status"}};
  Lum::Collection<LumVtiStatusSm, LumIntfConfig, Wire::IntfId,
                  Lum::Ptr<const Bridging::SwitchIntfConfig>>
      intfConfig_{this, "Vxlan::Local2RemoteForwarderSm::LumVtiStatusSm::intfConfig", {"config"}};
  bool initialized_ = false;
  DeviceWaits deviceWaits_;
  // Batch mode: one batch for each socket frames come from (high, low, inspection).
  std::unique_ptr<L2RBatch> batches_[3];
  mutable L2R::KeptDestinations keptDestinations_;
  // The status's VLAN to VNI map as the frame path reads it (onVlanToVniMap).
  L2R::VniByVlan vniByVlan_;
};

}  // namespace Vxlan
