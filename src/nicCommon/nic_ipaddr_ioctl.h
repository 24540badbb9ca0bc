// Adding and removing the virtual address with interface ioctls.
//
// Both run on the calling thread and open their own datagram socket. The
// request is named after the record's vdevname, or its ifname when vdevname
// is empty (at most 15 characters); the family comes from nic_ipck on
// sipel.addr. IPv4 uses nipel.addr, nipel.mask and bcast; IPv6 uses
// nipel6.addr and sipel.masklen.
#pragma once

#include "nicCommon/addrinfo.h"
#include "nicCommon/nic_ioctl.h"  // every request goes through nic_ioctl_fn

// The results of the two functions: 0 success, or the step that failed.
namespace vyr::nic_ioctl {
inline constexpr int kSocket = 9;
inline constexpr int kSetAddress = 10;
inline constexpr int kSetMask = 11;
inline constexpr int kSetBroadcast = 12;
inline constexpr int kSetFlags = 13;
inline constexpr int kGetIndex = 14;
inline constexpr int kGetFlagsOrAddress = 15;
inline constexpr int kDeleteIpv6 = 16;
}  // namespace vyr::nic_ioctl

// A failure after the address was set removes it again; the result stays
// the code of the first failure.
int nic_act_ipaddr_ioctl(struct vdevinfo* vdev);
// IPv4: takes the device down (which drops an alias's address) and deletes
// the address if the device still carries it. IPv6: deletes the address
// from the interface.
int nic_deact_ipaddr_ioctl(struct vdevinfo* vdev);
