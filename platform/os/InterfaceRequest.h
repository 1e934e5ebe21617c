// Lum::interfaceIndex: the kernel's index of an interface by name, through the
// SIOCGIFINDEX request on a socket, for code that binds packet sockets to a device.
//
// The kernel reads the name of an `ifreq` as a string of at most IFNAMSIZ (16) bytes
// with its terminating zero inside them, so a usable name has at most 15 bytes. A
// longer name is refused here with ENAMETOOLONG, and an empty one with ENODEV, before
// any request is made: cutting a name to 16 bytes would leave no terminating zero, and
// cutting it shorter could name another device.
#pragma once

#include <net/if.h>

#include <string_view>

#include "platform/os/SysCalls.h"

namespace Lum {

// The longest interface name the kernel takes: IFNAMSIZ less the terminating zero.
inline constexpr size_t kMaxInterfaceName = IFNAMSIZ - 1;

// Zeroes `req` and copies `name` into its name field with the terminating zero.
// Returns 0, or ENAMETOOLONG / ENODEV for a name that cannot be asked for (then `req`
// stays zeroed).
int interfaceRequestIs(ifreq& req, std::string_view name);

// The index of interface `name`, asked for with SIOCGIFINDEX on `sock` through `sys`:
// `rc` is the index, or -1 with `err` set when the name is refused or the request
// fails.
SysResult interfaceIndex(SysCalls& sys, int sock, std::string_view name);

}  // namespace Lum
