// The interface tool's command lines for adding and removing the virtual
// address.
//
// The lines follow their formats byte for byte: the tool path in double
// quotes, every other field as written when it is made of characters the
// shell passes on unchanged. A field with any other character is quoted
// (common/shell.h), so the tool receives each field as one argument and the
// shell never expands anything inside it. Values are not judged here: a
// name the kernel would refuse reaches the tool, whose failure is the
// answer. Safe from any thread.
#pragma once

#include <optional>
#include <string>

#include "nicCommon/addrinfo.h"
#include "vip/base/vip_info.h"

namespace vyr {

// IPv4: "<tool>" <vdevname> <addr> netmask <mask> broadcast <bcast> up
// IPv6: "<tool>" <ifname> add <addr>/<masklen>
// Output and errors go to /dev/null. Nullopt (traced) when the line would
// not fit a command buffer (VIP_PATH_LEN).
std::optional<std::string> AddCommandLine(const vdevinfo& vdev, const char* tool, bool ipv6);

// IPv4: "<ifconfcmd>" <ifname> down
// IPv6: "<ifconfcmd>" <ifname> del <addr>/<masklen>
std::optional<std::string> RemoveCommandLine(const VIP_INFO& info, bool ipv6);

}  // namespace vyr
