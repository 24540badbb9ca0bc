// Run-wide values of the agent. Written by the main thread while no worker
// runs, except the status description, which workers may write too: it is
// private to globals.cc and every access goes through its lock, so that
// concurrent writes stay whole. Failures write it through vyr::Fail
// (vip/status.h).
#pragma once

#include <cstdarg>

#include "vip/base/vip_info.h"

extern int actflag;      // -1 no mode yet, 0 activation, 1 deactivation
extern int nomuseflag;   // manual mode (--add, --del)
extern int dynamicflag;  // dynamic-update mode (--dactive, --ddeactive)
extern int ipv6flag;     // the address is IPv6 (set only by vip_ipck)
extern int IsIfconfig;   // 1: the interface tool lists, adds and removes
extern char inspath[VIP_PATH_LEN];
extern char rdrctpath[VIP_PATH_LEN];
extern char rdrctfile[VIP_PATH_LEN];

// Replaces the status description with a bounded print (at most 127
// characters). Safe from any thread.
void vip_set_shmbuf(const char* format, ...) __attribute__((format(printf, 1, 2)));
void vip_vset_shmbuf(const char* format, va_list ap) __attribute__((format(printf, 1, 0)));
// Copies the status description into `out` (VIP_SHMBUF_LEN bytes).
void vip_get_shmbuf(char* out);
// Empties the status description.
void vip_clear_shmbuf(void);
