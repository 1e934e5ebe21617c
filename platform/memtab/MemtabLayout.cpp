#include "platform/memtab/MemtabLayout.h"

#include <cstring>
#include <set>

#include "platform/core/Exception.h"
#include "platform/memtab/Memtab.h"

namespace LumMemtab {

namespace {

constexpr size_t kChecksumOffset = offsetof(TableHeader, headerChecksum);

uint64_t alignUp(uint64_t n) {
  return (n + kAlign - 1) / kAlign * kAlign;
}

bool validWidth(uint32_t bytes) {
  return bytes == 1 || bytes == 2 || bytes == 4 || bytes == 8;
}

[[noreturn]] void throwDamaged(std::string_view objectName, const std::string& what) {
  throw Memtab::CorruptionDetectedException("shared table " + std::string(objectName) +
                                            " damaged: " + what);
}

}  // namespace

uint32_t headerChecksum(const void* base, uint32_t headerBytes) {
  // FNV-1a, 32 bits: enough to tell a damaged header from a sound one; it is not a
  // defence against anyone forging a header.
  const auto* p = static_cast<const unsigned char*>(base);
  uint32_t h = 2166136261u;
  for (uint32_t i = 0; i < headerBytes; ++i) {
    const bool inChecksum = i >= kChecksumOffset && i < kChecksumOffset + sizeof(uint32_t);
    h = (h ^ (inChecksum ? 0u : p[i])) * 16777619u;
  }
  return h;
}

Layout Layout::plan(const std::vector<CollectionShape>& shapes) {
  if (shapes.size() > kMaxCollections) {
    Lum::throwRangeException("a shared table holds at most " + std::to_string(kMaxCollections) +
                             " collections");
  }
  Layout layout;
  std::set<std::string, std::less<>> names;
  uint64_t end = sizeof(TableHeader) + shapes.size() * sizeof(CollectionHeader);
  for (const CollectionShape& s : shapes) {
    if (s.name.empty() || s.name.size() >= kNameBytes || s.name.find('\0') != std::string::npos) {
      Lum::throwRangeException("bad shared collection name \"" + s.name + "\"");
    }
    if (!names.insert(s.name).second) {
      Lum::throwRangeException("shared collection \"" + s.name + "\" given twice");
    }
    if (!validWidth(s.elementBytes)) {
      Lum::throwRangeException("shared collection \"" + s.name + "\": elements of " +
                               std::to_string(s.elementBytes) + " bytes");
    }
    const uint64_t offset = alignUp(end);
    layout.collections_.push_back({s.name, s.elementBytes, s.elementCount, offset});
    end = offset + uint64_t{s.elementBytes} * s.elementCount;
  }
  layout.layoutBytes_ = alignUp(end);
  return layout;
}

Layout Layout::parse(const void* base, size_t objectBytes, std::string_view objectName) {
  if (objectBytes < sizeof(TableHeader)) {
    throwDamaged(objectName,
                 "object of " + std::to_string(objectBytes) + " bytes is shorter than a header");
  }
  TableHeader h;
  std::memcpy(&h, base, sizeof h);
  if (std::memcmp(h.magic, kMagic, sizeof kMagic) != 0) throwDamaged(objectName, "bad magic");
  if (h.version != kLayoutVersion) {
    throwDamaged(objectName, "version " + std::to_string(h.version) + ", expected " +
                                 std::to_string(kLayoutVersion));
  }
  if (h.collectionCount > kMaxCollections ||
      h.headerBytes != sizeof(TableHeader) + h.collectionCount * sizeof(CollectionHeader) ||
      h.headerBytes > objectBytes) {
    throwDamaged(objectName, "header of " + std::to_string(h.collectionCount) + " collections in " +
                                 std::to_string(h.headerBytes) + " bytes");
  }
  if (headerChecksum(base, h.headerBytes) != h.headerChecksum) {
    throwDamaged(objectName, "bad header checksum");
  }
  if (h.layoutBytes != objectBytes) {
    throwDamaged(objectName, "layout of " + std::to_string(h.layoutBytes) +
                                 " bytes in an object of " + std::to_string(objectBytes));
  }

  Layout layout;
  layout.layoutBytes_ = h.layoutBytes;
  uint64_t end = h.headerBytes;
  const auto* headers = reinterpret_cast<const unsigned char*>(base) + sizeof(TableHeader);
  for (uint32_t i = 0; i < h.collectionCount; ++i) {
    CollectionHeader c;
    std::memcpy(&c, headers + i * sizeof(CollectionHeader), sizeof c);
    const size_t nameLength = strnlen(c.name, kNameBytes);
    std::string name(c.name, nameLength);
    if (nameLength == 0 || nameLength == kNameBytes || layout.collection(name)) {
      throwDamaged(objectName, "collection " + std::to_string(i) + " has no name of its own");
    }
    const uint64_t bytes = uint64_t{c.elementBytes} * c.elementCount;
    if (!validWidth(c.elementBytes) || c.offset % kAlign != 0 || c.offset < end ||
        c.offset > h.layoutBytes || bytes > h.layoutBytes - c.offset) {
      throwDamaged(objectName, "collection \"" + name + "\" of " + std::to_string(c.elementCount) +
                                   " x " + std::to_string(c.elementBytes) + " bytes at offset " +
                                   std::to_string(c.offset));
    }
    end = c.offset + bytes;
    layout.collections_.push_back({std::move(name), c.elementBytes, c.elementCount, c.offset});
  }
  return layout;
}

void Layout::writeHeader(void* base) const {
  auto* p = static_cast<unsigned char*>(base);
  std::memset(p, 0, headerBytes());
  TableHeader h{};
  std::memcpy(h.magic, kMagic, sizeof kMagic);
  h.version = kLayoutVersion;
  h.layoutBytes = layoutBytes_;
  h.collectionCount = static_cast<uint32_t>(collections_.size());
  h.headerBytes = headerBytes();
  for (size_t i = 0; i < collections_.size(); ++i) {
    const CollectionLayout& c = collections_[i];
    CollectionHeader ch{};
    std::memcpy(ch.name, c.name.data(), c.name.size());
    ch.elementBytes = c.elementBytes;
    ch.elementCount = c.elementCount;
    ch.offset = c.offset;
    std::memcpy(p + sizeof(TableHeader) + i * sizeof(CollectionHeader), &ch, sizeof ch);
  }
  std::memcpy(p, &h, sizeof h);
  h.headerChecksum = headerChecksum(p, h.headerBytes);
  std::memcpy(p + kChecksumOffset, &h.headerChecksum, sizeof h.headerChecksum);
}

const CollectionLayout* Layout::collection(std::string_view name) const {
  for (const CollectionLayout& c : collections_) {
    if (c.name == name) return &c;
  }
  return nullptr;
}

}  // namespace LumMemtab
