// The duplicate-address probe fanned out over the resource's addresses,
// one thread per address, with retries.
#pragma once

#include <pthread.h>

#include "vip/probe.h"
#include "vip/vip_info.h"

typedef struct _VIP_THREAD_INFO {
  int ret;
  pthread_t pt;
  void* thret;
} VIP_THREAD_INFO, *PVIP_THREAD_INFO;

int vip_ping(VIP_INFO* pvipinfo);
int vip_ping_mkth(PIP_INFO pip, int ipnum);
void* vip_ping_retry(void* arg);
