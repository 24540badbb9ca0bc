// The kernel's duplicate address detection (DAD) of an added IPv6 address:
// waiting for its verdict, and what the activation makes of it.
//
// Main thread, inside the activation's critical section.
#pragma once

#include <netinet/in.h>

#include "nicCommon/addrinfo.h"
#include "vip/base/vip_info.h"

enum class DadVerdict {
  kUsable,     // not tentative (DAD passed, or does not run on the interface)
  kFailed,     // the kernel saw another node with the address ("dadfailed")
  kTentative,  // still tentative when the time was up
  kGone,       // the address is not on the interface
  kError,      // the kernel could not be asked (netlink)
};

// Waits at most `timeout_ms` for the address `addr` on interface `ifindex`
// to leave the tentative state. Woken by the kernel's address notifications;
// the state is also read once at the start, so a verdict already given is
// seen at once.
DadVerdict vip_wait_dad(unsigned ifindex, const struct in6_addr& addr, int timeout_ms);

// After an IPv6 address was added: when dadtout is set, or advertisements
// are to be sent (which a tentative address must not be), waits for the
// kernel's verdict. With dadtout set, "dadfailed" takes the address away
// again and fails with 15 ("This ip address was already used.  IP=<addr>");
// a verdict still open at the time limit is a warning. *announce says
// whether the address may be advertised. 0 or 15.
int vip_dad_check(VIP_INFO* info, struct vdevinfo* vdev, bool* announce);
