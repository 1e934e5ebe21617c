// Fuzz target of R2L::decapFrame, the per-frame function of the remote-to-local
// direction: any byte string read from the remote socket, as it stands in the frame
// buffer of the frame loop.
//
// Besides what the sanitizers catch (a read or write outside the frame, undefined
// behaviour), it checks what the frame loop relies on: a forwarded frame lies inside
// the buffer, is the read length less its offset, carries the "txraw" tag, the VLAN
// of its VNI and the port id, and keeps the inner frame's type and payload untouched;
// a dropped frame is not changed at all.
//
// The filter is fixed and matches the seeds (fuzz/corpus/r2l_frame): VTEP 10.0.0.1,
// port 4789, flood group 239.1.1.1, VNI 5000 on VLAN 10 and 5001 on VLAN 4094.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "forwarding/R2LFramePath.h"
#include "frames/LocalFrameHdr.h"

namespace {

using namespace Vxlan;

// The frame loop's buffer size: nothing longer is ever read.
constexpr size_t kFrameBufferSize = 10000;

const R2L::FrameFilter& filter() {
  static R2L::VniToVlanTable table;
  static R2L::FrameFilter f;
  if (f.vniToVlan == nullptr) {
    table.is(Vni(5000), Bridging::VlanIdOrNone(10));
    table.is(Vni(5001), Bridging::VlanIdOrNone(4094));
    f.localVtep = Wire::IpAddr::fromString("10.0.0.1");
    f.floodGroup = Wire::IpAddr::fromString("239.1.1.1");
    f.udpPort = 4789;
    f.portId = HwPortId(0x0102);
    f.vniToVlan = &table;
  }
  return f;
}

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kFrameBufferSize) return 0;
  // A buffer of exactly the input's size, so that the address sanitizer sees any read
  // past the frame.
  std::vector<uint8_t> buf(data, data + size);
  const R2L::Decap d = R2L::decapFrame(buf.data(), static_cast<uint32_t>(size), filter());
  if (!d.forwarded()) {
    check(size == 0 || std::memcmp(buf.data(), data, size) == 0);
    return 0;
  }
  check(d.offset + d.length == size && d.length > sizeof(TxRawHdr));
  const uint8_t* out = buf.data() + d.offset;
  const uint8_t* inner = data + d.offset + 8;  // the inner frame behind the VXLAN header
  check(std::memcmp(out, inner, 12) == 0);
  check(out[12] == 0x00 && out[13] == 0x08);
  check(((out[14] << 8) | out[15]) == d.vlan.value() && !d.vlan.isNone());
  check(out[16] == 0x01 && out[17] == 0x02 && out[18] == 0 && out[19] == 0);
  check(std::memcmp(out + 20, inner + 12, d.length - 20) == 0);
  return 0;
}
