// The settings record of one run: everything the run knows about the
// virtual IP address it works on. Allocated cleared by the entry, filled
// from the command line and the cluster configuration, read by the
// sequences (only activation rewrites ifname and masklen, before removing an
// address again after a link failure).
#pragma once

#include "nicCommon/addrinfo.h"  // the name and address text sizes

inline constexpr int VIP_ADDRBUF_LEN = 82;  // an address with a prefix length
inline constexpr int VIP_PATH_LEN = 1024;   // paths and command lines
inline constexpr int VIP_SHMBUF_LEN = 128;  // the status description

typedef struct _VIP_INFO {
  char rscname[VIP_NAME_LEN];
  char grpname[VIP_NAME_LEN];
  char addr[VIP_ADDR_LEN];
  char mask[VIP_ADDR_LEN];
  int masklen;
  char ifname[VIP_NAME_LEN];
  char pingcmd[VIP_PATH_LEN];
  int pingtout;
  int pingretry;
  int pinginterval;
  int pingforce;
  int pingallip;
  int pingnpsimu;
  char arpcmd[VIP_PATH_LEN];
  int arpnum;
  int arpopcode;
  char ifconfcmd[VIP_PATH_LEN];
  int ifconftout;
  int checkifexec;
  int checkifretry;
  int checkifinterval;
  int checkiferror;
  int checkpiexec;
  int checkpiretry;
  int checkpiinterval;
  int checkpierror;
  int miiw_method;
  int isMiiw;
  int ifconfuse;
  // Defence of the address, activation only; 0 (the default) turns each off.
  int nanum;         // unsolicited Neighbor Advertisements after an IPv6 activation
  int dadtout;       // ms to wait for the kernel's DAD verdict on an IPv6 address
  int arpprobetout;  // ms of ARP probing before an IPv4 activation
  int dadprobe;      // ms of the agent's own duplicate detection before an IPv6 activation
  int checkarptout;  // ms of asking the link who has the address after a removal; 0: not asked
  int checkarpbg;    // 1: that question listened to by a detached process when it can only warn
  // The address change through rtnetlink (ipaddr/...); 0 keeps the ways
  // IsIfconfig chooses.
  int ipaddrnetlink;               // 1: list through the kernel, add and remove through rtnetlink
  int ipaddrnodad;                 // 1: an IPv6 address is added without the kernel's DAD
  int ipaddrnoprefixroute;         // 1: the kernel adds no prefix route for the address
  int ipaddrpreflft;               // preferred lifetime in seconds; -1: forever
  int ipaddrnolabel;               // 1: IPv4 on the interface itself, no alias label
  char ipaddrlabel[VIP_NAME_LEN];  // IPv4 label after "<ifname>:"; empty: an alias
  char ipaddrbcast[VIP_ADDR_LEN];  // IPv4 broadcast address or "none"; empty: the mask's
  // Speed of the sequences; 0 (the default) keeps each as it always was.
  int lockshort;      // 1: the critical section ends with the address change (and link check)
  int arpinterval;    // ms between announcement frames; 0: one second
  int arpbackground;  // 1: frames after the first from a detached announcer
} VIP_INFO, *PVIP_INFO;
