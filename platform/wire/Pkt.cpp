#include "platform/wire/Pkt.h"

#include "platform/core/Exception.h"

namespace Wire {

namespace {

bool ptrWithinRegion(const uint8_t* p, const uint8_t* start, uint32_t size) {
  return p >= start && p <= start + size;
}

}  // namespace

Pkt::Pkt(Manager* manager, std::unique_ptr<SharedBuffer> shared)
    : sharedBuffer_(std::move(shared)), manager_(manager) {
  sharedBuffer_->data_ = sharedBuffer_->buffer_ + sharedBuffer_->size_;
  sharedBuffer_->dataBytes_ = 0;
  firstIoVec_ = 1;
  updateSharedIovec();
}

Pkt::~Pkt() {
  // The storage goes back to the manager for the next packet.
  manager_->release(std::move(sharedBuffer_));
}

uint32_t Pkt::bytes() const {
  uint32_t n = 0;
  for (int i = firstIoVec_; i < kMaxIovecs; ++i) n += static_cast<uint32_t>(iov_[i].iov_len);
  return n;
}

uint32_t Pkt::headRoom() const {
  if (!sharedBuffer_) return 0;
  return static_cast<uint32_t>(sharedBuffer_->data_ - sharedBuffer_->buffer_);
}

void Pkt::newSharedHeadData(uint32_t bytes) {
  if (!sharedBuffer_) Lum::throwRangeException("sharedBuffer_ != 0");
  SharedBuffer& s = *sharedBuffer_;
  // Compared as distances first, so that no pointer is formed before the storage.
  if (bytes > static_cast<uint32_t>(s.data_ - s.buffer_)) {
    Lum::throwRangeException("ptrWithinRegion( data_, buffer_, size_ )");
  }
  s.data_ -= bytes;
  s.dataBytes_ += bytes;
  updateSharedIovec();
}

void Pkt::delSharedHeadData(uint32_t bytes) {
  if (!sharedBuffer_) Lum::throwRangeException("sharedBuffer_ != 0");
  SharedBuffer& s = *sharedBuffer_;
  if (bytes > s.dataBytes_) Lum::throwRangeException("ptrWithinRegion( data_, buffer_, size_ )");
  s.data_ += bytes;
  s.dataBytes_ -= bytes;
  updateSharedIovec();
}

void Pkt::updateSharedIovec() {
  if (firstIoVec_ == kMaxIovecs) Lum::throwRangeException("firstIoVec_ != maxIovecs_");
  const SharedBuffer& s = *sharedBuffer_;
  if (!ptrWithinRegion(s.data_, s.buffer_, s.size_) ||
      !ptrWithinRegion(s.data_ + s.dataBytes_, s.buffer_, s.size_)) {
    Lum::throwRangeException("ptrWithinRegion( data_ + dataBytes_, buffer_, size_ )");
  }
  iov_[1].iov_base = s.data_;
  iov_[1].iov_len = s.dataBytes_;
}

Lum::Ptr<Pkt> Pkt::Manager::newPkt() {
  if (packets_ >= limit_) {
    ++refused_;
    return nullptr;
  }
  std::unique_ptr<SharedBuffer> shared;
  if (!spare_.empty()) {
    shared = std::move(spare_.back());
    spare_.pop_back();
  } else {
    shared = std::make_unique<SharedBuffer>();
    shared->storage_ = std::make_unique<uint8_t[]>(kStorageBytes);
    shared->buffer_ = shared->storage_.get();
    shared->size_ = kStorageBytes;
  }
  ++packets_;
  return Lum::Ptr<Pkt>(new Pkt(this, std::move(shared)));
}

void Pkt::Manager::release(std::unique_ptr<SharedBuffer> shared) {
  --packets_;
  if (shared && spare_.size() < kSpareBuffers) spare_.push_back(std::move(shared));
}

Pkt::Manager& globalPktManager() {
  // Never destroyed: a packet that a static still holds at exit finds it.
  static Pkt::Manager* manager = new Pkt::Manager();
  return *manager;
}

}  // namespace Wire
