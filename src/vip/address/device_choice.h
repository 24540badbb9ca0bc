// Choice of the device that carries the virtual address.
//
// Main thread only (reads ipv6flag). The record's ifname, sipel.addr,
// sipel.mask, sipel.masklen and network-form address (and mask, when a text
// mask was given) are filled by the caller; this completes vdevname, the
// mask when none was given, bcast (IPv4), smac and macaddr.
//
// The record's opt (the ipaddr/ settings) changes an IPv4 address's device:
// a label gives "<interface>:<label>" and nolabel the interface itself
// (either way no free alias is looked for and a configured alias is not
// used; the label wins over nolabel), and a broadcast text replaces the
// mask's broadcast address ("none": bcast stays empty).
#pragma once

#include "nicCommon/addrinfo.h"

// Highest alias number tried for an IPv4 address (eth0:0 ... eth0:9999).
inline constexpr int VIP_MAX_ALIAS = 9999;
// Longest device name the kernel takes.
inline constexpr int VIP_MAX_DEVNAME = 15;

// 0, or 17 (no interface / no free alias), 28 (alias in use), 30 (name too
// long, or a label with a blank, '/' or a character that is not printable),
// 99 (a broadcast text that is no IPv4 address).
int vip_crt_vdevinfo(struct ipaddrinfo* ipaddrlist, int num, struct vdevinfo* vdev);
