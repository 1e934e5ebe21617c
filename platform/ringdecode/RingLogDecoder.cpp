#include "platform/ringdecode/RingLogDecoder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "platform/core/Exception.h"
#include "platform/trace/RingLogLayout.h"

namespace RingLog {

// ---- Decoding ------------------------------------------------------------------------
//
// The decoder trusts nothing in the file: every offset, length and count is checked
// against the bytes actually there, so a damaged or foreign file gives marker lines or
// an exception, never a read out of bounds.

namespace {

// Texts are built by appending: GCC 12 at -O3 warns falsely (-Wrestrict) about
// `"literal" + std::string&&`, which a packager's plain build would turn into an error.

// Widths and precisions beyond this come from a damaged format, not from a real site.
constexpr long long kMaxFieldWidth = 4096;

struct DecodedDesc {
  std::string_view file;
  uint32_t line;
  std::string_view format;
};

struct Arg {
  ArgType type = ArgType::end;
  int64_t i = 0;   // i32, i64
  uint64_t u = 0;  // u32, u64, ptr
  double d = 0;
  std::string_view s;
};

const char* typeName(ArgType t) {
  switch (t) {
    case ArgType::i32:
      return "i32";
    case ArgType::u32:
      return "u32";
    case ArgType::i64:
      return "i64";
    case ArgType::u64:
      return "u64";
    case ArgType::f64:
      return "f64";
    case ArgType::str:
      return "str";
    case ArgType::ptr:
      return "ptr";
    default:
      return "?";
  }
}

bool isInteger(ArgType t) {
  return t == ArgType::i32 || t == ArgType::u32 || t == ArgType::i64 || t == ArgType::u64;
}

long long asSigned(const Arg& a) {
  return (a.type == ArgType::i32 || a.type == ArgType::i64) ? a.i : static_cast<long long>(a.u);
}

// As printf would show the value of its recorded width: -1 stored as i32 is ffffffff.
unsigned long long asUnsigned(const Arg& a) {
  switch (a.type) {
    case ArgType::i32:
      return static_cast<uint32_t>(static_cast<int32_t>(a.i));
    case ArgType::i64:
      return static_cast<uint64_t>(a.i);
    default:
      return a.u;
  }
}

template <class V>
void appendFormatted(std::string& out, const std::string& directive, V v) {
  char small[128];
  const int n = std::snprintf(small, sizeof small, directive.c_str(), v);
  if (n < 0) {
    out += "<?" + directive + ">";
  } else if (static_cast<size_t>(n) < sizeof small) {
    out.append(small, static_cast<size_t>(n));
  } else {
    std::string big(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), directive.c_str(), v);
    out.append(big.data(), static_cast<size_t>(n));
  }
}

std::string argText(const Arg& a) {
  std::string out;
  switch (a.type) {
    case ArgType::i32:
    case ArgType::i64:
      return std::to_string(a.i);
    case ArgType::u32:
    case ArgType::u64:
      return std::to_string(a.u);
    case ArgType::f64:
      appendFormatted(out, "%g", a.d);
      return out;
    case ArgType::ptr:
      appendFormatted(out, "%#llx", static_cast<unsigned long long>(a.u));
      return out;
    case ArgType::str:
      return std::string(1, '"').append(a.s).append(1, '"');
    default:
      return "?";
  }
}

// Digits of a width or precision, clamped.
long long parseDigits(std::string_view f, size_t& i) {
  long long v = 0;
  while (i < f.size() && f[i] >= '0' && f[i] <= '9') {
    v = std::min(v * 10 + (f[i] - '0'), kMaxFieldWidth);
    ++i;
  }
  return v;
}

// Walks the format as printf does and formats each conversion with snprintf, using the
// type the argument was recorded with rather than the one the format claims.
std::string formatMessage(std::string_view f, const std::vector<Arg>& args, bool truncated) {
  std::string out;
  size_t next = 0;
  auto take = [&]() -> const Arg* { return next < args.size() ? &args[next++] : nullptr; };
  size_t i = 0;
  while (i < f.size()) {
    if (f[i] != '%') {
      out += f[i++];
      continue;
    }
    if (i + 1 < f.size() && f[i + 1] == '%') {
      out += '%';
      i += 2;
      continue;
    }
    const size_t start = i++;
    std::string directive = "%";
    bool badStar = false;
    while (i < f.size() && std::string_view("-+ #0'").find(f[i]) != std::string_view::npos) {
      directive += f[i++];
    }
    if (i < f.size() && f[i] == '*') {
      ++i;
      const Arg* w = take();
      if (w == nullptr || !isInteger(w->type)) {
        badStar = true;
      } else {
        directive += std::to_string(std::clamp(asSigned(*w), -kMaxFieldWidth, kMaxFieldWidth));
      }
    } else if (i < f.size() && f[i] >= '1' && f[i] <= '9') {
      directive += std::to_string(parseDigits(f, i));
    }
    if (i < f.size() && f[i] == '.') {
      ++i;
      if (i < f.size() && f[i] == '*') {
        ++i;
        const Arg* p = take();
        if (p == nullptr || !isInteger(p->type)) {
          badStar = true;
        } else if (asSigned(*p) >= 0) {  // a negative precision counts as none
          directive += "." + std::to_string(std::min(asSigned(*p), kMaxFieldWidth));
        }
      } else {
        directive.append(".").append(std::to_string(parseDigits(f, i)));
      }
    }
    while (i < f.size() && std::string_view("hlLqjzt").find(f[i]) != std::string_view::npos) ++i;
    if (i >= f.size()) {
      out += "<?" + std::string(f.substr(start)) + ">";
      break;
    }
    const char conv = f[i++];
    const std::string_view convText = f.substr(start, i - start);
    const Arg* a = take();
    auto mark = [&](const char* why) {
      out += "<?";
      out += convText;
      out += ':';
      out += why;
      out += '>';
    };
    if (a == nullptr) {
      mark("missing");
      continue;
    }
    if (badStar) {
      mark("width");
      continue;
    }
    switch (conv) {
      case 'd':
      case 'i':
        if (!isInteger(a->type)) break;
        appendFormatted(out, directive + "lld", asSigned(*a));
        continue;
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        if (!isInteger(a->type)) break;
        appendFormatted(out, directive + "ll" + conv, asUnsigned(*a));
        continue;
      case 'c':
        if (!isInteger(a->type)) break;
        appendFormatted(out, directive + "c", static_cast<int>(asSigned(*a)));
        continue;
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        if (a->type != ArgType::f64) break;
        appendFormatted(out, directive + conv, a->d);
        continue;
      case 's':
        if (a->type != ArgType::str) break;
        appendFormatted(out, directive + "s", std::string(a->s).c_str());
        continue;
      case 'p':
        if (a->type != ArgType::ptr && a->type != ArgType::u64) break;
        appendFormatted(out, directive + "p",
                        reinterpret_cast<const void*>(static_cast<uintptr_t>(a->u)));
        continue;
      default:
        break;
    }
    mark(typeName(a->type));
  }
  if (next < args.size()) out += " <" + std::to_string(args.size() - next) + " more args>";
  if (truncated) out += " <truncated>";
  return out;
}

// False when the argument bytes do not parse; `p` holds the bytes after the header.
bool parseArgs(const unsigned char* p, size_t n, std::vector<Arg>& args, bool& truncated) {
  size_t off = 0;
  auto need = [&](size_t k) { return off + k <= n; };
  while (off < n) {
    Arg a;
    a.type = static_cast<ArgType>(p[off++]);
    switch (a.type) {
      case ArgType::end:
        return true;
      case ArgType::truncated:
        truncated = true;
        continue;
      case ArgType::i32:
      case ArgType::u32: {
        if (!need(4)) return false;
        uint32_t v;
        std::memcpy(&v, p + off, 4);
        off += 4;
        if (a.type == ArgType::i32) {
          a.i = static_cast<int32_t>(v);
        } else {
          a.u = v;
        }
        break;
      }
      case ArgType::i64:
      case ArgType::u64:
      case ArgType::f64:
      case ArgType::ptr:
        if (!need(8)) return false;
        if (a.type == ArgType::i64) std::memcpy(&a.i, p + off, 8);
        if (a.type == ArgType::f64) std::memcpy(&a.d, p + off, 8);
        if (a.type == ArgType::u64 || a.type == ArgType::ptr) std::memcpy(&a.u, p + off, 8);
        off += 8;
        break;
      case ArgType::str: {
        uint16_t len;
        if (!need(2)) return false;
        std::memcpy(&len, p + off, 2);
        off += 2;
        if (!need(len)) return false;
        a.s = std::string_view(reinterpret_cast<const char*>(p + off), len);
        off += len;
        break;
      }
      default:
        return false;
    }
    args.push_back(a);
  }
  return true;
}

std::string timeText(uint64_t ns) {
  const time_t sec = static_cast<time_t>(ns / 1000000000u);
  tm local{};
  ::localtime_r(&sec, &local);
  char buf[48];
  const size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(buf + n, sizeof buf - n, ".%06u", static_cast<unsigned>(ns % 1000000000u / 1000));
  return buf;
}

std::string_view baseName(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::vector<unsigned char> readWholeFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw Lum::ErrnoException(errno, "open ring log " + path);
  std::vector<unsigned char> bytes;
  unsigned char chunk[65536];
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int err = errno;
      ::close(fd);
      throw Lum::ErrnoException(err, "read ring log " + path);
    }
    if (n == 0) break;
    bytes.insert(bytes.end(), chunk, chunk + n);
  }
  ::close(fd);
  return bytes;
}

// Descriptors by id. A damaged table ends the walk; later ids print as unknown.
std::vector<std::pair<uint32_t, DecodedDesc>> readDescs(const std::vector<unsigned char>& file,
                                                        const FileHeader& fh) {
  std::vector<std::pair<uint32_t, DecodedDesc>> descs;
  if (fh.descTableOffset > file.size() || fh.descTableBytes > file.size() - fh.descTableOffset) {
    return descs;
  }
  const unsigned char* table = file.data() + fh.descTableOffset;
  const size_t used = std::min<size_t>(fh.descBytesUsed, fh.descTableBytes);
  size_t off = 0;
  for (uint32_t k = 0; k < fh.descCount; ++k) {
    DescEntry e;
    if (off + sizeof e > used) break;
    std::memcpy(&e, table + off, sizeof e);
    if (e.entryBytes % 8 != 0 || e.entryBytes > used - off ||
        sizeof e + e.fileBytes + 1u + e.formatBytes + 1u > e.entryBytes) {
      break;
    }
    const auto* text = reinterpret_cast<const char*>(table + off + sizeof e);
    descs.emplace_back(e.id, DecodedDesc{std::string_view(text, e.fileBytes), e.line,
                                         std::string_view(text + e.fileBytes + 1, e.formatBytes)});
    off += e.entryBytes;
  }
  std::sort(descs.begin(), descs.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  return descs;
}

// Where the record after one that ends at `end` starts: there, or past the mark that
// closes a block, at the next block or back at offset 0.
uint32_t nextRecord(const RingHeader& rh, const unsigned char* data, uint32_t end) {
  const uint32_t block = rh.blockBytes == 0 ? rh.dataBytes : rh.blockBytes;
  if (end >= rh.dataBytes) return 0;
  if (end % block == 0 || loadU32(data + end) != 0) return end;
  const uint32_t next = end - end % block + block;
  return next < rh.dataBytes ? next : 0;
}

void decodeRing(const std::vector<unsigned char>& file, uint64_t ringOffset, int level,
                const std::vector<std::pair<uint32_t, DecodedDesc>>& descs,
                std::vector<std::string>& lines) {
  const std::string tag = std::string("L").append(std::to_string(level)).append(" ");
  RingHeader rh;
  if (ringOffset > file.size() || file.size() - ringOffset < sizeof rh) {
    lines.push_back(tag + "<ring header beyond the end of the file>");
    return;
  }
  std::memcpy(&rh, file.data() + ringOffset, sizeof rh);
  if (rh.dataBytes == 0 || rh.dataBytes % 8 != 0 || rh.blockBytes % 8 != 0 ||
      file.size() - ringOffset - sizeof rh < rh.dataBytes) {
    lines.push_back(tag + "<ring data beyond the end of the file>");
    return;
  }
  const unsigned char* data = file.data() + ringOffset + sizeof rh;
  const uint64_t count = rh.nextSeq - rh.firstSeq;
  if (rh.nextSeq < rh.firstSeq || count > rh.dataBytes / sizeof(RecordHeader)) {
    lines.push_back(tag + "<damaged ring: bad record count>");
    return;
  }
  uint32_t pos = rh.tail;
  std::vector<Arg> args;
  for (uint64_t k = 0; k < count; ++k) {
    RecordHeader rec;
    if (pos % 8 != 0 || pos > rh.dataBytes - sizeof rec) {
      lines.push_back(tag + "<damaged ring: record offset " + std::to_string(pos) + ">");
      return;
    }
    std::memcpy(&rec, data + pos, sizeof rec);
    if (rec.recordBytes < sizeof rec || rec.recordBytes % 8 != 0 ||
        rec.recordBytes > kMaxRecordBytes || rec.recordBytes > rh.dataBytes - pos) {
      lines.push_back(tag + "<damaged ring: record length at offset " + std::to_string(pos) + ">");
      return;
    }
    if (rec.seq != rh.firstSeq + k) {
      // Overwritten since the header was read, or damaged.
      lines.push_back(tag + "<damaged ring: record at offset " + std::to_string(pos) +
                      " has sequence " + std::to_string(rec.seq) + ", expected " +
                      std::to_string(rh.firstSeq + k) + ">");
      return;
    }
    args.clear();
    bool truncated = false;
    std::string message;
    if (!parseArgs(data + pos + sizeof rec, rec.recordBytes - sizeof rec, args, truncated)) {
      message = "<damaged arguments>";
    } else {
      const auto it = std::lower_bound(descs.begin(), descs.end(), rec.descId,
                                       [](const auto& d, uint32_t id) { return d.first < id; });
      if (it != descs.end() && it->first == rec.descId) {
        message = std::string(baseName(it->second.file)) + ":" + std::to_string(it->second.line) +
                  " " + formatMessage(it->second.format, args, truncated);
      } else {
        message = "?:0 <message " + std::to_string(rec.descId) + " not in the file>";
        for (const Arg& a : args) message.append(" ").append(argText(a));
      }
    }
    lines.push_back(tag + "#" + std::to_string(rec.seq) + " " + timeText(rec.timeNs) + " " +
                    message);
    pos = nextRecord(rh, data, pos + rec.recordBytes);
  }
}

}  // namespace

std::vector<std::string> decodeFile(const std::string& path) {
  return decode(readWholeFile(path), path);
}

std::vector<std::string> decode(const std::vector<unsigned char>& file, const std::string& path) {
  FileHeader fh;
  if (file.size() < sizeof fh) throw Lum::Exception("not a ring log file: " + path);
  std::memcpy(&fh, file.data(), sizeof fh);
  if (std::memcmp(fh.magic, kMagic, sizeof kMagic) != 0) {
    throw Lum::Exception("not a ring log file: " + path);
  }
  if (fh.version < 1 || fh.version > kVersion || fh.levelCount != kLevels) {
    throw Lum::Exception("ring log version " + std::to_string(fh.version) +
                         " not understood: " + path);
  }
  const auto descs = readDescs(file, fh);
  std::vector<std::string> lines;
  for (int level = 0; level < kLevels; ++level) {
    if (fh.ringOffset[level] != 0) decodeRing(file, fh.ringOffset[level], level, descs, lines);
  }
  return lines;
}

}  // namespace RingLog
