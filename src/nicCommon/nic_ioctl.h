// The one way the agent makes interface ioctls: the address add and remove
// and the NIC link check all go through nic_ioctl_fn (::ioctl by default),
// so that a test can make one request fail halfway through or play a PHY's
// registers. Change it only while no other thread adds or removes addresses
// or checks a link.
#pragma once

using NicIoctlFn = int (*)(int fd, unsigned long request, void* arg);
extern NicIoctlFn nic_ioctl_fn;
int nic_ioctl_kernel(int fd, unsigned long request, void* arg);
