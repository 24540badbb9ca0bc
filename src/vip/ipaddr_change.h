// Adding and removing the virtual address: by the interface tool under the
// time limit, or by ioctl.
#pragma once

#include <atomic>

#include "vip/addrinfo.h"
#include "vip/vip_info.h"

typedef struct _IP_CMD_INFO {
  int ret;
  char cmdpath[VIP_PATH_LEN];
} IP_CMD_INFO, *PIP_CMD_INFO;

extern std::atomic<int> actthend;

int vip_act_ipaddr(struct vdevinfo* vdev, const char* cmdpath, int timeout);
int vip_deact_ipaddr(struct vdevinfo* vdev, VIP_INFO* pvipinfo);
void vip_cmd_system(void* arg);
