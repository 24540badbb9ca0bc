// Every local interface address, from the kernel (getifaddrs).
#pragma once

#include "nicCommon/addrinfo.h"

namespace vyr::nic_getinfo {
inline constexpr int kNoMemory = 2;
inline constexpr int kNoAddress = 3;   // no address outside loopback
inline constexpr int kUnreadable = 4;  // the kernel list could not be read
}  // namespace vyr::nic_getinfo

// 0: *ipaddrlist is a new array (free with std::free) of *num entries;
// otherwise one of the codes above.
int nic_get_all_info(struct ipaddrinfo** ipaddrlist, int* num);
