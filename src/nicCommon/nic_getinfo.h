// Every local interface address, from the kernel (getifaddrs).
#pragma once

#include "nicCommon/addrinfo.h"

// 0: *ipaddrlist is a new array (free with std::free) of *num entries;
// 2: no memory; 3: no address outside loopback; 4: the kernel list could not be read.
int nic_get_all_info(struct ipaddrinfo** ipaddrlist, int* num);
