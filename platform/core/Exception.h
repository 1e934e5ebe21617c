// Exceptions of the framework.
//
// Exceptions are for contract faults (a value beyond its limit, an empty required
// parameter, a constructor parameter that would change) and for failed socket
// set-up. They end the reaction that raised them; the event loop reports them and
// goes on. The frame paths never throw.
//
// Every exception carries a numeric id. `Lum::Expect` declares, for its scope, that
// an exception with a given id may come, so that the report made when an exception
// is raised can tell an expected failure from a fault.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace Lum {

enum class ExceptionId : int {
  generic = 1,
  range = 2,
  errnoFailure = 3,
  nameInUse = 4,
  constInstance = 5,
  corruption = 6,
  deviceMissing = 29,
};

class Exception : public std::exception {
 public:
  explicit Exception(std::string text, ExceptionId id = ExceptionId::generic);
  const char* what() const noexcept override { return text_.c_str(); }
  ExceptionId id() const { return id_; }
  // True when a `Lum::Expect` for this id was in scope when the exception was built.
  bool expected() const { return expected_; }

 private:
  std::string text_;
  ExceptionId id_;
  bool expected_;
};

class RangeException : public Exception {
 public:
  explicit RangeException(std::string text) : Exception(std::move(text), ExceptionId::range) {}
};

class NameInUseException : public Exception {
 public:
  explicit NameInUseException(std::string text)
      : Exception(std::move(text), ExceptionId::nameInUse) {}
};

// A failed system call during set-up: the errno and a short text naming the step.
// what() reads "<step>: <strerror> (errno <n>)".
class ErrnoException : public Exception {
 public:
  ErrnoException(int err, std::string_view step);
  int errNo() const { return errno_; }
  const std::string& step() const { return step_; }

 private:
  int errno_;
  std::string step_;
};

[[noreturn]] void throwRangeException(std::string_view text);
[[noreturn]] void throwNameInUseException(std::string_view name);

// Declares for its scope that an exception with `id` may be raised. Scopes nest.
class Expect {
 public:
  explicit Expect(ExceptionId id);
  explicit Expect(int id) : Expect(static_cast<ExceptionId>(id)) {}
  ~Expect();
  Expect(const Expect&) = delete;
  Expect& operator=(const Expect&) = delete;

  static bool isExpected(ExceptionId id);

 private:
  ExceptionId id_;
  Expect* outer_;
};

}  // namespace Lum
