// TestSupport::NamespaceSwitch: moves the calling thread into a named network
// namespace (one of `ip netns add`) for the life of the object, and back.
//
//   {
//     TestSupport::NamespaceSwitch in("vxs-1234-0");
//     int fd = ::socket(AF_PACKET, ...);   // bound to a device of that namespace
//   }                                      // the thread is home again; fd stays there
//
// A socket keeps the namespace it was made in, so tests open sockets inside and use
// them outside. Only the calling thread moves. The destructor always restores the
// thread's own namespace; when the kernel refuses that the process aborts, since every
// later step would run against the wrong devices.
#pragma once

#include <string>

namespace TestSupport {

class NamespaceSwitch {
 public:
  // Throws Lum::ErrnoException when the namespace does not exist or cannot be entered.
  explicit NamespaceSwitch(const std::string& netns);
  ~NamespaceSwitch();
  NamespaceSwitch(const NamespaceSwitch&) = delete;
  NamespaceSwitch& operator=(const NamespaceSwitch&) = delete;

 private:
  int home_ = -1;
};

}  // namespace TestSupport
