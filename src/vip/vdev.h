// Choice of the device that carries the virtual address.
#pragma once

#include "vip/addrinfo.h"

// 0, or 17 (no interface / no free alias), 28 (alias in use), 30 (name too long).
int vip_crt_vdevinfo(struct ipaddrinfo* ipaddrlist, int num, struct vdevinfo* vdev);
