// Sockets opened inside a named network namespace.
//
// A socket belongs to the namespace of the thread that created it and stays there
// for its life, wherever the thread goes later. So a socket for a namespace is made by
// moving the calling thread into the namespace (setns on the handle that `ip netns add`
// leaves at /run/netns/<name>), creating the socket, and moving the thread back before
// anything else runs. The empty name and "default" are the thread's own namespace.
//
//   int fd = Lum::socketInNamespace("blue", AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
//
// Every failure raises ErrnoException naming its step, with nothing left open and the
// thread in its own namespace.
#pragma once

#include <string_view>

namespace Lum {

// True for the names that mean the thread's own namespace.
bool isOwnNamespace(std::string_view name);

// Raises a range exception unless `name` can name a file of /run/netns (not ".", "..",
// and without '/').
void checkNamespaceName(std::string_view name);

int socketInNamespace(std::string_view name, int domain, int type, int protocol);

}  // namespace Lum
