// The kernel's interface-address list (getifaddrs) with an owner that
// releases it on every path, and the one question the agent asks of it
// outside the listing: is this address on this interface now. Any thread.
#pragma once

#include <ifaddrs.h>

#include <memory>

namespace vyr {

struct IfaddrsFree {
  void operator()(ifaddrs* list) const { ::freeifaddrs(list); }
};
using IfaddrsList = std::unique_ptr<ifaddrs, IfaddrsFree>;

// The current list; empty (null) when getifaddrs failed, errno set.
IfaddrsList ReadIfaddrs();

// Whether `addr` (an in_addr for AF_INET, an in6_addr for AF_INET6) is on
// the interface of `device`, alias labels included ("eth0:1" stands for
// eth0 and every alias of it). 1 yes, 0 no, -1 the list could not be read.
int AddressOnInterface(const char* device, int family, const void* addr);

}  // namespace vyr
