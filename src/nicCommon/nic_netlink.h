// Adding and removing the virtual address through rtnetlink (RTM_NEWADDR,
// RTM_DELADDR), the way `ip addr` does.
//
// Any thread; each call opens its own NETLINK_ROUTE socket (close-on-exec)
// and waits for the kernel's answer to each request. The family comes from
// nic_ipck on sipel.addr. The interface is the part of vdevname (or ifname
// when vdevname is empty) before its ':'. Both return 0, or the negative
// errno of the step that failed (an NLMSG_ERROR gives the kernel's errno),
// with that step's trace line.
#pragma once

#include "nicCommon/addrinfo.h"

// Raises the interface, then adds the address with nipel.addr and the
// prefix of nipel.mask (IPv4) or nipel6.addr and sipel.masklen (IPv6).
// IPv4 also carries bcast as the broadcast address (none when empty) and,
// when vdevname has a ':', vdevname as the label. opt.flags go into
// IFA_FLAGS; a preferred_lft of 0 or more sets the preferred lifetime in
// seconds (the address stays valid for ever). An address that is already
// there fails with -EEXIST and is left alone.
int nic_act_ipaddr_netlink(const struct vdevinfo* vdev);
// Deletes the address from the interface, whatever its label (IPv4) or
// flags; IPv6 needs the address's own prefix length in sipel.masklen.
int nic_deact_ipaddr_netlink(const struct vdevinfo* vdev);
