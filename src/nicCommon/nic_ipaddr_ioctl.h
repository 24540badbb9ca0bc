// Adding and removing the virtual address with interface ioctls.
#pragma once

#include "vip/addrinfo.h"

// 0 success, 9 socket, 10 address, 11 mask, 12 broadcast, 13 flags,
// 14 interface index, 15 flags or address read, 16 IPv6 delete.
int nic_act_ipaddr_ioctl(struct vdevinfo* vdev);
int nic_deact_ipaddr_ioctl(struct vdevinfo* vdev);
