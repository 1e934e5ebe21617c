// The counter table reader over damaged bytes: each input becomes the whole content of
// a shared-memory table of this process's own, which the reader then opens and reads
// the way the operator's tool does. A damaged header is refused with the table's
// corruption error; nothing may fault or read past the object.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "agent/CounterTableReader.h"
#include "platform/core/Exception.h"
#include "platform/memtab/MemtabMount.h"

namespace {

const std::string kAgent = "fuzz" + std::to_string(::getpid());

struct Object {
  std::string name = LumMemtab::Mount::objectName(kAgent, Vxlan::kCounterTablePath);
  int fd = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  Object() {
    if (fd < 0) std::abort();
  }
  ~Object() {
    ::close(fd);
    ::shm_unlink(name.c_str());
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Object object;
  if (::ftruncate(object.fd, static_cast<off_t>(size)) != 0 ||
      ::pwrite(object.fd, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  try {
    Vxlan::CounterTableReader reader(kAgent);
    (void)reader.counts();
  } catch (const Lum::Exception&) {
  }
  return 0;
}
