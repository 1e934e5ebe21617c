#include "platform/types/ValueStrep.h"

#include <cctype>
#include <string>

#include "platform/types/ValueText.h"

namespace Lum {

namespace {

bool blank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// What is left at `pos`, as a fault message shows it: at most 24 bytes, control and
// other bytes outside printable ASCII as \xNN.
std::string rest(StrepPos pos, StrepPos end) {
  std::string out;
  appendEscaped(out, std::string_view(pos, end).substr(0, 24));
  return out;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

void needString(StrepPos& pos, StrepPos end, std::string_view pattern) {
  StrepPos at = pos;
  for (const char want : pattern) {
    if (blank(want)) {
      while (at != end && blank(*at)) ++at;
    } else if (at != end && *at == want) {
      ++at;
    } else {
      pos = at;
      throwRangeException("expected \"" + std::string(pattern) + "\" at \"" + rest(at, end) + "\"");
    }
  }
  pos = at;
}

String8 strepToString(StrepPos& pos, StrepPos end) {
  if (pos == end || (*pos != '\'' && *pos != '"')) {
    throwRangeException("expected a quoted string at \"" + rest(pos, end) + "\"");
  }
  const char quote = *pos;
  std::string out;
  for (StrepPos at = pos + 1; at != end; ++at) {
    if (*at == quote) {
      pos = at + 1;
      return String8(out);
    }
    if (*at != '\\') {
      out += *at;
      continue;
    }
    if (++at == end) break;
    if (*at == 'x' && end - at > 2 && hexDigit(at[1]) >= 0 && hexDigit(at[2]) >= 0) {
      out += static_cast<char>(hexDigit(at[1]) << 4 | hexDigit(at[2]));
      at += 2;
    } else if (*at == '\\' || *at == '\'' || *at == '"') {
      out += *at;
    } else {
      throwRangeException("bad escape in string at \"" + rest(at - 1, end) + "\"");
    }
  }
  throwRangeException("unterminated string at \"" + rest(pos, end) + "\"");
}

uint64_t strepToUnsigned(StrepPos& pos, StrepPos end, uint64_t max) {
  StrepPos at = pos;
  uint64_t n = 0;
  bool tooBig = false;
  for (; at != end && *at >= '0' && *at <= '9'; ++at) {
    const auto digit = static_cast<uint64_t>(*at - '0');
    tooBig = tooBig || n > (max - digit) / 10;
    if (!tooBig) n = n * 10 + digit;
  }
  if (at == pos) throwRangeException("expected a number at \"" + rest(pos, end) + "\"");
  if (tooBig) {
    throwRangeException("value " + std::string(pos, at) + " out of range (at most " +
                        std::to_string(max) + ")");
  }
  pos = at;
  return n;
}

void rethrowFromDeserializeAttr(std::string_view attr, const RangeException& e) {
  throwRangeException("attribute " + std::string(attr) + ": " + e.what());
}

String8 valueToStrep(const String8& s) {
  std::string out = "'";
  appendEscaped(out, s.view(), "\\'");
  out += '\'';
  return String8(out);
}

String8 valueToStrep(uint64_t n) {
  return String8(std::to_string(n));
}

void throwJunkAfterValue(const String8& text, StrepPos pos) {
  const long long column = pos - text.view().begin();
  throwRangeException(format("junk at column %lld deserializing %s", column, text.charPtr()).str());
}

}  // namespace Lum
