// The interface tool's command lines for adding and removing the virtual
// address.
//
// Every value that comes from the configuration is checked (an address
// must parse, an interface name must be one the kernel could carry) and then
// quoted, so that the shell hands the tool exactly the words of the line and
// never expands anything inside them. The tool path is quoted as one word.
// Safe from any thread; the functions trace why they refuse a value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "nicCommon/addrinfo.h"
#include "vip/base/vip_info.h"

namespace vyr {

// A name the kernel accepts for a device or an alias label: 1 to 15
// characters, no '/', no blank or control character, not "." or "..".
bool IsLegalIfName(std::string_view name);

// IPv4: "<tool>" <vdevname> <addr> netmask <mask> broadcast <bcast> up
// IPv6: "<tool>" <ifname> add <addr>/<masklen>
// Output and errors go to /dev/null. Nullopt when a value is refused or the
// line would not fit a command buffer (VIP_PATH_LEN).
std::optional<std::string> AddCommandLine(const vdevinfo& vdev, const char* tool, bool ipv6);

// IPv4: "<ifconfcmd>" <ifname> down
// IPv6: "<ifconfcmd>" <ifname> del <addr>/<masklen>
std::optional<std::string> RemoveCommandLine(const VIP_INFO& info, bool ipv6);

}  // namespace vyr
