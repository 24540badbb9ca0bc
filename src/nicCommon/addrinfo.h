// Records that describe interface addresses and the device chosen to carry
// the virtual address. Plain fixed-size records; a list is a contiguous
// array of ipaddrinfo with an int count, built by the listings and freed
// (std::free) by the sequence that asked for it.
#pragma once

#include <netinet/in.h>

inline constexpr int VIP_NAME_LEN = 32;  // resource, group and interface names
inline constexpr int VIP_ADDR_LEN = 46;  // an address or mask as text

struct nipel {
  struct in_addr addr;
  struct in_addr mask;
};

struct nipel6 {
  struct in6_addr addr;
  struct in6_addr mask;
};

struct sipel {
  char addr[VIP_ADDR_LEN];
  char mask[VIP_ADDR_LEN];
  int masklen;
};

struct ipaddrinfo {
  char ifname[VIP_NAME_LEN];
  unsigned int index;
  struct nipel nipel;
  struct nipel6 nipel6;
  struct sipel sipel;
  char smac[64];
  unsigned char macaddr[20];
};

// How the rtnetlink way changes the address (the ipaddr/* settings). As
// constructed (netlink 0) the record is changed the way IsIfconfig says and
// nothing here is read. The interface layer reads the first three, the
// device choice the last three.
struct ipaddropt {
  int netlink = 0;                    // 1: add and remove through rtnetlink
  unsigned int flags = 0;             // IFA_F_NODAD, IFA_F_NOPREFIXROUTE
  int preferred_lft = -1;             // seconds; negative: forever
  int nolabel = 0;                    // 1: IPv4 on the interface itself, no alias label
  char label[VIP_NAME_LEN] = {};      // IPv4 label after "<ifname>:"; empty: an alias
  char broadcast[VIP_ADDR_LEN] = {};  // IPv4 broadcast address or "none"; empty: the mask's
};

struct vdevinfo {
  char ifname[VIP_NAME_LEN];
  char vdevname[VIP_NAME_LEN];
  struct nipel nipel;
  struct nipel6 nipel6;
  struct sipel sipel;
  char bcast[VIP_ADDR_LEN];
  char smac[64];
  unsigned char macaddr[20];
  struct ipaddropt opt;
};
