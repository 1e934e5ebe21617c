// Shared-memory tables: what readers of a table see when it is damaged.
#pragma once

#include <string>

#include "platform/core/Exception.h"

namespace Memtab {

// A read found the table damaged (a bad magic, version or checksum). The reader
// reports the message to the collection's corruptionDetected() and goes on from the
// default element.
class CorruptionDetectedException : public Lum::Exception {
 public:
  explicit CorruptionDetectedException(std::string text)
      : Lum::Exception(std::move(text), Lum::ExceptionId::corruption) {}
};

}  // namespace Memtab
