// rtnetlink sockets for requests that wait for the kernel's answer (neighbor writes),
// made inside a named network namespace.
//
//   int fd = -1;
//   Wire::createNetlinkSocket(fd, 0, "blue", 2, true);   // no groups, 2 s wait, cloexec
//   ... Arp::ipNeighAdd(fd, ...) ...
//   Lum::sysCalls().close(fd);
//
// The socket joins `groups` (0: it hears only answers to its own requests), blocks on a
// read for at most `replyWaitSeconds` (so a lost answer cannot hold the event loop for
// ever), and is closed on exec when `closeOnExec`. The empty name and "default" are the
// thread's own namespace. A failure raises ErrnoException naming its step; nothing is
// left open and `out` keeps its value.
#pragma once

#include <cstdint>
#include <string_view>

namespace Wire {

void createNetlinkSocket(int& out, uint32_t groups, std::string_view netNs, int replyWaitSeconds,
                         bool closeOnExec);

}  // namespace Wire
