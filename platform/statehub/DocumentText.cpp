#include "platform/statehub/DocumentText.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/os/SysCalls.h"
#include "platform/statehub/StateDocument.h"

namespace Statehub {

using nlohmann::json;

namespace {

std::string fileKind(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

// Reads the whole of a regular file, refusing anything else before the first read.
std::string readRegular(const std::string& path) {
  Lum::SysCalls& sys = Lum::sysCalls();
  // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below.
  const int fd = sys.open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC, 0);
  if (fd < 0) throw StateError(path, std::string("cannot read: ") + std::strerror(errno));
  struct Closer {
    int fd;
    ~Closer() { Lum::sysCalls().close(fd); }
  } closer{fd};
  struct stat st {};
  if (sys.fstat(fd, &st) != 0) throw StateError(path, std::strerror(errno));
  if (!S_ISREG(st.st_mode)) throw StateError(path, fileKind(st.st_mode) + ", not a state file");
  if (static_cast<size_t>(st.st_size) > DocumentText::kMaxFileBytes) {
    throw StateError(path, "larger than " + std::to_string(DocumentText::kMaxFileBytes) +
                               " bytes, the most a state file may hold");
  }
  std::string text(static_cast<size_t>(st.st_size), '\0');
  size_t got = 0;
  while (got < text.size()) {
    const Lum::SysResult r = sys.read(fd, text.data() + got, text.size() - got);
    if (r.failed() && r.err == EINTR) continue;
    if (r.failed()) throw StateError(path, std::string("cannot read: ") + std::strerror(r.err));
    if (r.rc == 0) break;  // shrunk while read: parse what is there
    got += static_cast<size_t>(r.rc);
  }
  text.resize(got);
  return text;
}

}  // namespace

json DocumentText::parse(std::string_view text, std::string_view source) {
  // The callback sees every value as it starts, with its depth: a document deeper than
  // the limit is refused there, before the parser has built it.
  const json::parser_callback_t depthLimit = [](int depth, json::parse_event_t event, json&) {
    if (depth >= kMaxDepth &&
        (event == json::parse_event_t::object_start || event == json::parse_event_t::array_start)) {
      throw std::length_error("nested deeper than " + std::to_string(kMaxDepth) + " levels");
    }
    return true;
  };
  try {
    return json::parse(text, depthLimit, true, /*ignore_comments=*/true);
  } catch (const json::exception& e) {
    throw StateError(source, e.what());
  } catch (const std::length_error& e) {
    throw StateError(source, e.what());
  }
}

json DocumentText::readFile(const std::string& path) {
  const std::string text = readRegular(path);
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
    throw StateError(path, "empty file, not a state document");
  }
  return parse(text, path);
}

std::string DocumentText::dump(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace Statehub
