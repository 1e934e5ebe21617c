#include "platform/types/IpAddr.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Wire {

namespace {

// inet_pton reads a C string: a NUL inside the view would silently cut the text.
std::optional<IpAddr> parseV4(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  uint32_t word = 0;
  if (inet_pton(AF_INET, std::string(text).c_str(), &word) != 1) return std::nullopt;
  return IpAddr::fromNetworkOrder(word);
}

std::optional<Ip6Addr> parseV6(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  std::array<uint8_t, 16> bytes{};
  if (inet_pton(AF_INET6, std::string(text).c_str(), bytes.data()) != 1) return std::nullopt;
  return Ip6Addr(bytes);
}

// Empty text is the unset address; a colon tells IPv6 from IPv4.
std::optional<IpGenAddr> parseGen(std::string_view text) {
  if (text.empty()) return IpGenAddr();
  if (text.find(':') != std::string_view::npos) {
    if (auto v6 = parseV6(text)) return IpGenAddr(*v6);
  } else if (auto v4 = parseV4(text)) {
    return IpGenAddr(*v4);
  }
  return std::nullopt;
}

struct AddrAndLen {
  std::string_view address;
  uint64_t maskLen;
};

// Splits "<address>/<decimal length>"; the length is mandatory.
std::optional<AddrAndLen> splitMask(std::string_view text) {
  size_t slash = text.rfind('/');
  if (slash == std::string_view::npos) return std::nullopt;
  std::optional<uint64_t> len = Lum::parseDecimal(text.substr(slash + 1));
  if (!len) return std::nullopt;
  return AddrAndLen{text.substr(0, slash), *len};
}

// Parsed lengths can be any uint64_t; anything above a byte is out of range anyway.
int clampedLen(uint64_t len) {
  return len > 255 ? 255 : static_cast<int>(len);
}

template <class T>
std::string textOf(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

}  // namespace

IpAddr IpAddr::fromString(std::string_view text) {
  std::optional<IpAddr> a = parseV4(text);
  if (!a) Lum::throwMalformedText(kTypeName, text);
  return *a;
}

Ip6Addr Ip6Addr::fromString(std::string_view text) {
  std::optional<Ip6Addr> a = parseV6(text);
  if (!a) Lum::throwMalformedText(kTypeName, text);
  return *a;
}

IpGenAddr::IpGenAddr(IpAddr v4) : family_(AF_INET) {
  std::array<uint8_t, 4> b = v4.bytes();
  std::memcpy(addr_.data(), b.data(), b.size());
}

IpGenAddr::IpGenAddr(const Ip6Addr& v6) : family_(AF_INET6), addr_(v6.bytes()) {}

IpGenAddr IpGenAddr::fromString(std::string_view text) {
  std::optional<IpGenAddr> a = parseGen(text);
  if (!a) Lum::throwMalformedText(kTypeName, text);
  return *a;
}

bool IpGenAddr::isV4() const {
  return family_ == AF_INET;
}
bool IpGenAddr::isV6() const {
  return family_ == AF_INET6;
}

bool IpGenAddr::isZero() const {
  return addr_ == std::array<uint8_t, 16>{};
}

bool IpGenAddr::isMulticast() const {
  if (isV4()) return v4().isMulticast();
  if (isV6()) return v6().isMulticast();
  return false;
}

IpAddr IpGenAddr::v4() const {
  if (!isV4()) Lum::throwRangeException("IpGenAddr: \"" + textOf(*this) + "\" is not IPv4");
  return IpAddr::fromBytes(std::span<const uint8_t, 4>(addr_.data(), 4));
}

Ip6Addr IpGenAddr::v6() const {
  if (!isV6()) Lum::throwRangeException("IpGenAddr: \"" + textOf(*this) + "\" is not IPv6");
  return Ip6Addr(addr_);
}

unsigned IpGenAddr::maxMaskLen() const {
  return isV4() ? 32 : isV6() ? 128 : 0;
}

IpAddrWithMask::IpAddrWithMask(IpAddr address, int maskLen) : address_(address) {
  if (maskLen < 0 || maskLen > 32) {
    Lum::throwRangeException("IpAddrWithMask::maskLen < 0 or > 32 not allowed");
  }
  maskLen_ = static_cast<uint8_t>(maskLen);
}

IpAddrWithMask IpAddrWithMask::fromString(std::string_view text) {
  std::optional<AddrAndLen> parts = splitMask(text);
  std::optional<IpAddr> address = parts ? parseV4(parts->address) : std::nullopt;
  if (!address) Lum::throwMalformedText(kTypeName, text);
  return IpAddrWithMask(*address, clampedLen(parts->maskLen));
}

IpGenAddrWithMask::IpGenAddrWithMask(const IpGenAddr& address, int maskLen) : address_(address) {
  if (address.isV4() && (maskLen < 0 || maskLen > 32)) {
    Lum::throwRangeException("IpGenAddrWithMask::maskLen < 0 or > 32 not allowed for IPv4");
  }
  if (address.isV6() && (maskLen < 0 || maskLen > 128)) {
    Lum::throwRangeException("IpGenAddrWithMask::maskLen < 0 or > 128 not allowed for IPv6");
  }
  if (address.isUnset() && maskLen != 0) {
    Lum::throwRangeException("IpGenAddrWithMask::maskLen != 0 not allowed for an unset address");
  }
  maskLen_ = static_cast<uint8_t>(maskLen);
}

IpGenAddrWithMask IpGenAddrWithMask::fromString(std::string_view text) {
  if (text.empty()) return IpGenAddrWithMask();
  std::optional<AddrAndLen> parts = splitMask(text);
  // An empty address part would read as unset: "/0" is not the text of anything.
  std::optional<IpGenAddr> address =
      parts && !parts->address.empty() ? parseGen(parts->address) : std::nullopt;
  if (!address) Lum::throwMalformedText(kTypeName, text);
  return IpGenAddrWithMask(*address, clampedLen(parts->maskLen));
}

std::ostream& operator<<(std::ostream& os, IpAddr a) {
  uint32_t word = a.value();
  char buf[INET_ADDRSTRLEN];
  return os << inet_ntop(AF_INET, &word, buf, sizeof buf);
}

std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) {
  char buf[INET6_ADDRSTRLEN];
  return os << inet_ntop(AF_INET6, a.bytes().data(), buf, sizeof buf);
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) {
  if (a.isV4()) return os << a.v4();
  if (a.isV6()) return os << a.v6();
  return os;
}

std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a) {
  return os << a.address() << '/' << a.maskLen();
}

std::ostream& operator<<(std::ostream& os, const IpGenAddrWithMask& a) {
  if (a.address().isUnset()) return os;
  return os << a.address() << '/' << a.maskLen();
}

}  // namespace Wire

namespace {
size_t hashBytes(const std::array<uint8_t, 16>& b) {
  return std::hash<std::string_view>()(
      std::string_view(reinterpret_cast<const char*>(b.data()), b.size()));
}
}  // namespace

size_t std::hash<Wire::Ip6Addr>::operator()(const Wire::Ip6Addr& a) const noexcept {
  return hashBytes(a.bytes());
}

size_t std::hash<Wire::IpGenAddr>::operator()(const Wire::IpGenAddr& a) const noexcept {
  return hashBytes(a.bytes()) ^ static_cast<size_t>(a.family());
}

size_t std::hash<Wire::IpAddrWithMask>::operator()(const Wire::IpAddrWithMask& a) const noexcept {
  return std::hash<uint64_t>()(uint64_t{a.address().value()} << 8 |
                               static_cast<uint64_t>(a.maskLen()));
}

size_t std::hash<Wire::IpGenAddrWithMask>::operator()(
    const Wire::IpGenAddrWithMask& a) const noexcept {
  return std::hash<Wire::IpGenAddr>()(a.address()) * 131 + static_cast<size_t>(a.maskLen());
}
