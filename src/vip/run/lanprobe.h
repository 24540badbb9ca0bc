// The deep monitor's question to the LAN (vyrvip --lanprobe): does a host
// other than this one answer at the address, and, when the address is here,
// telling the LAN so again. Needs no configuration and stores no row in the
// resource table; the caller has checked for root. Main thread only.
#pragma once

#include "vip/base/vip_info.h"

struct VIP_LANPROBE {
  char addr[VIP_ADDR_LEN];    // IPv4 or IPv6, without a prefix
  char ifname[VIP_NAME_LEN];  // an interface name (an alias stands for its interface)
  int wait_ms = 200;          // -w: how long answers are collected
  int count = 0;              // -n: re-announcements when the address is here
};

// Reads "--lanprobe -a ADDR -i IFNAME [-w MS] [-n COUNT]" (options compared
// ignoring case; a prefix after the address is dropped). 0, or 4 with
// "Option was invalid." for a missing, unknown or malformed option: an
// address that does not parse, a name that is not a legal interface name,
// MS outside 1 to 60000, COUNT outside 0 to 100.
int vip_lanprobe_options(int argc, char** argv, VIP_LANPROBE* probe);

// Asks the LAN who has the address for wait_ms and, with count > 0 and
// nobody else answering, re-announces the address count times 200 ms apart
// when it is on the interface (a failed re-announcement is a warning). 0:
// no MAC but the interface's own answered; 15: another did, with the
// description "IP address was already used. (MAC=xx:xx:xx:xx:xx:xx)"; 2:
// the LAN could not be asked (packet socket, interface), with "LAN probe
// could not run. (ret=N)".
int vip_lanprobe(const VIP_LANPROBE& probe);

// The whole mode after the root check: the options, the probe, and the
// status description on standard output as one line when the status is not
// 0. Returns the status.
int vip_lanprobe_main(int argc, char** argv);
