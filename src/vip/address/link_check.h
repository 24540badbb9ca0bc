// The NIC link check: ethtool link query and MII registers.
//
// Main thread. Works on a socket the caller opened and keeps open.
#pragma once

enum __miiw_ret_val__ {
  MIIW_RET_SUCCESS = 0,
  MIIW_RET_FAIL_PARAM = 1,
  MIIW_RET_FAIL_PERMISSION = 2,
  MIIW_RET_FAIL_UNREGCONF = 3,
  MIIW_RET_FAIL_INVCONF = 4,
  MIIW_RET_API_ERR = 5,
  MIIW_RET_FAIL_GETADDRINFO = 10,
  MIIW_RET_FAIL_SOCKET = 11,
  MIIW_RET_FAIL_IOCTL = 12,
  MIIW_RET_FAIL_IOCTL_NOTSUPPORT = 13,
  MIIW_RET_FAIL_NICDOWN = 20,
  MIIW_RET_FAIL_IOCTL_TIMEOUT = 90,
  MIIW_RET_FAIL_UNKNOWN = 98,
  MIIW_RET_INTERNAL_ERR = 99,
};

// Methods: 0 ethtool, MII registers when ethtool fails; 1 MII registers
// only; 2 ethtool only. Returns MIIW_RET_SUCCESS (link up), FAIL_NICDOWN,
// FAIL_IOCTL (a query or register read failed), FAIL_IOCTL_NOTSUPPORT
// (ethtool unsupported, or neither MII request set accepted) or FAIL_PARAM
// (unknown method).
// Every request goes through nic_ioctl_fn (nicCommon/nic_ioctl.h).
int vip_miiw_ioctl(int* sock, const char* ifname, int method);
