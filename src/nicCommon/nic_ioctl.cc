#include "nicCommon/nic_ioctl.h"

#include <sys/ioctl.h>

int nic_ioctl_kernel(int fd, unsigned long request, void* arg) { return ::ioctl(fd, request, arg); }

NicIoctlFn nic_ioctl_fn = nic_ioctl_kernel;
