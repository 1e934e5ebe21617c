// The trace ring decoder over the bytes of a ring file, as the operator's tool reads a
// file that may be damaged, cut short or not a ring file at all. Refusals come as
// exceptions of the platform; a damaged ring ends with a line saying so.
#include <cstdint>
#include <vector>

#include "platform/core/Exception.h"
#include "platform/ringdecode/RingLogDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<unsigned char> file(data, data + size);
  try {
    (void)RingLog::decode(file, "fuzz.rl");
  } catch (const Lum::Exception&) {
  }
  return 0;
}
