// The timed listing of every local address: through the interface tool's
// output (older layout), parsed on a worker thread under a time limit, or
// through the kernel when the tool is not used.
#pragma once

#include <atomic>

#include "vip/addrinfo.h"

typedef struct _IPADDR_INFO {
  int ret;
  int ipaddr_num;
  char cmdpath[VIP_PATH_LEN];
  struct ipaddrinfo* list;
} IPADDR_INFO, *PIPADDR_INFO;

extern std::atomic<int> ifconfthend;

int vip_ifconfig_mkth(struct ipaddrinfo** ipaddrlist, int* num, const char* cmdpath, int timeout);
void vip_cmd_popen(void* arg);
int vip_get_ipaddrlist(struct ipaddrinfo** ipaddrlist, int* num, char* cmdpath);
