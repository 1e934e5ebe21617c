// Vxlan::Remote2LocalForwarderSm: the remote-to-local direction. Per VXLAN tunnel
// interface a LumVtiStatusSm takes VXLAN datagrams off the interface that carries the
// VTEP address (remoteSock), checks them, turns the VNI into a VLAN, rewrites each
// frame in place into the "txraw" form and writes it to the forwarding plane
// (localSock).
//
// The frame path runs inside the readable notification of remoteSock, on the agent's
// one event loop, for at most maxProcessTime per run; a frame is read once into one
// buffer on the stack and changed in place. A frame that cannot be forwarded is
// dropped, traced and counted: nothing is thrown and no error is returned.
#pragma once

#include <cstdint>

#include "agent/VxlanAgentCounter.h"
#include "frames/LocalFrameHdr.h"
#include "platform/FileDescriptor.h"
#include "platform/Instance.h"
#include "platform/Reactor.h"
#include "platform/status/KernelNetworkInfo.h"
#include "platform/status/StatusModel.h"

namespace Vxlan {

class Remote2LocalForwarderSm : public Lum::VFPtrInterface {
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

  // The per-VTI machines that follow the tunnel interface directory come with the
  // direction's lifecycle; today a machine is built around a status by its user.
  explicit Remote2LocalForwarderSm(const Inputs& inputs) : inputs_(inputs) {}
  // The inputs that the frame path needs, the others empty: for tests and benchmarks.
  static Inputs inputs(const Lum::Ptr<VniToVlanMaps>& maps,
                       const Lum::Ptr<VxlanAgentCounter>& counter) {
    Inputs in;
    in.vniToVlanMaps = maps;
    in.vxAgentCounter = counter;
    return in;
  }

  const Lum::Ptr<VniToVlanMaps>& vniToVlanMaps() const { return inputs_.vniToVlanMaps; }
  VxlanAgentCounter* vxAgentCounter() const { return inputs_.vxAgentCounter.ptr(); }

 private:
  Inputs inputs_;
};

class Remote2LocalForwarderSm::LumVtiStatusSm : public VtiStatus::NotifieeConst {
 public:
  static constexpr uint32_t kFrameBufferSize = 10000;
  static constexpr double kDefaultMaxProcessTime = 0.1;

  // Holds the VNI to VLAN table of the VTI for the frame path.
  class LumVniToVlanForVti : public Lum::NestedReactor<LumVtiStatusSm, VniToVlanMap::Notifiee> {};
  // The readable watch on remoteSock.
  class LumFileDescriptor
      : public Lum::NestedReactor<LumVtiStatusSm, Lum::FileDescriptor::Notifiee> {
   public:
    void onReadableCount() override { s()->handleFileDescriptor(s()->remoteSock()); }
  };

  LumVtiStatusSm(const Lum::Ptr<Lum::ActivityConfig>& activity,
                 const Lum::Ptr<const VtiStatus>& status, Remote2LocalForwarderSm* parent);
  static Wire::IntfId lumKeyOf(const Lum::Ptr<const VtiStatus>& s) { return s->intfId(); }

  const Wire::IntfId& intfId() const { return intfId_; }
  Remote2LocalForwarderSm* parent() const { return parent_; }
  void parentIs(Remote2LocalForwarderSm* p) { parent_ = p; }

  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }
  int32_t remoteSock() const { return remoteSock_; }
  void remoteSockIs(int32_t s) { remoteSock_ = s; }
  int32_t localSock() const { return localSock_; }
  void localSockIs(int32_t s) { localSock_ = s; }
  double maxProcessTime() const { return maxProcessTime_; }
  void maxProcessTimeIs(double t) { maxProcessTime_ = t; }
  Wire::IpAddr floodMcastGrp() const { return floodMcastGrp_; }
  void floodMcastGrpIs(Wire::IpAddr g) { floodMcastGrp_ = g; }
  uint16_t portId() const { return portId_; }
  void portIdIs(uint16_t p) { portId_ = p; }
  LumVniToVlanForVti* vniToVlanForVti() const { return vniToVlanForVti_.get(); }
  void vniToVlanForVtiIs(const Lum::Ptr<VniToVlanMap>& m) { vniToVlanForVti_.is(m); }
  LumFileDescriptor* fileDescriptor() const { return fileDescriptor_.get(); }
  void fileDescriptorIs(const Lum::Ptr<Lum::FileDescriptor>& fd) { fileDescriptor_.is(fd); }

  void handleInitialized();

  // The frame loop: reads `desc` until it is drained or the time budget is spent.
  void handleFileDescriptor(int32_t desc);
  // True when the frame is a VXLAN datagram for this VTEP; `offset` receives the offset
  // of its VXLAN header (and, on the way, of the outer tag).
  bool checkRawFrame(const uint8_t* buf, uint32_t len, int32_t& offset);
  // Writes a decapsulated frame to localSock; reopens the socket once on ENETDOWN.
  // Returns what the write returned, or 0 for a length that is not positive.
  ssize_t writeDecapdFrame(const uint8_t* frame, int32_t len);
  void vxlanCounterInc(VxlanCounterId id, uint32_t count);
  void dump_buf(const char* label, const uint8_t* buf, uint32_t len);

  // Replaces localSock with a new socket on the device "txraw".
  void createLocalSocket();
  // Closes `sock` unless it is -1; returns -1 for storing back.
  static int32_t closeAndCheck(int32_t sock);

 private:
  void sendFrame(const uint8_t* frame, int32_t len, ssize_t& result);

  Remote2LocalForwarderSm* parent_;
  Wire::IntfId intfId_;
  uint16_t portId_ = kPortIdUnknown;
  Lum::Nested<LumVniToVlanForVti> vniToVlanForVti_{this};
  int32_t remoteSock_ = -1;
  int32_t localSock_ = -1;
  double maxProcessTime_ = kDefaultMaxProcessTime;
  Lum::Nested<LumFileDescriptor> fileDescriptor_{this};
  Wire::IpAddr floodMcastGrp_;
  bool initialized_ = false;
};

}  // namespace Vxlan
