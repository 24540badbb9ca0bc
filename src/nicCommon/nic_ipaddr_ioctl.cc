#include "nicCommon/nic_ipaddr_ioctl.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "nicCommon/nic_ipck.h"
#include "tracersc/tracersc.h"
#include "unique_fd.h"

// The interface layer names itself by module in its trace lines.
#define NIC_TRACE(level, ...) trace((level), "src/nicCommon", __LINE__, __func__, __VA_ARGS__)

namespace {

using namespace vyr::nic_ioctl;

// The kernel's request for IPv6 addresses (linux/ipv6.h), kept here so that
// the kernel header does not collide with the C library's netinet/in.h.
struct in6_ifreq {
  struct in6_addr ifr6_addr;
  uint32_t ifr6_prefixlen;
  int ifr6_ifindex;
};

void NameRequest(const vdevinfo* vdev, ifreq* ifr) {
  const char* name = vdev->vdevname[0] != '\0' ? vdev->vdevname : vdev->ifname;
  std::snprintf(ifr->ifr_name, sizeof ifr->ifr_name, "%.15s", name);
}

void SetInet(sockaddr* sa, in_addr addr) {
  sockaddr_in sin{};
  sin.sin_family = AF_INET;
  sin.sin_port = 0;
  sin.sin_addr = addr;
  std::memcpy(sa, &sin, sizeof sin);
}

in6_ifreq Ipv6Request(const vdevinfo* vdev, int index) {
  in6_ifreq req{};
  req.ifr6_addr = vdev->nipel6.addr;
  req.ifr6_prefixlen = static_cast<uint32_t>(vdev->sipel.masklen);
  req.ifr6_ifindex = index;
  return req;
}

// Raises the device named in `ifr`: 0, 15 or 13.
int RaiseDevice(int sock, ifreq* ifr) {
  if (nic_ioctl_fn(sock, SIOCGIFFLAGS, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCGIFFLAGS failed.(errno=%d)", errno);
    return kGetFlagsOrAddress;
  }
  ifr->ifr_flags = static_cast<short>(ifr->ifr_flags | IFF_UP | IFF_RUNNING);
  if (nic_ioctl_fn(sock, SIOCSIFFLAGS, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCSIFFLAGS failed.(errno=%d)", errno);
    return kSetFlags;
  }
  return 0;
}

int AddIpv6(const vdevinfo* vdev, ifreq* ifr, vyr::UniqueFd* sock, bool* address_set) {
  sock->reset(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!sock->valid()) {
    NIC_TRACE(TRACE_ERROR, "scoket failed.(errno=%d)", errno);
    return kSocket;
  }
  if (nic_ioctl_fn(sock->get(), SIOCGIFINDEX, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCGIFINDEX failed.(errno=%d)", errno);
    return kGetIndex;
  }
  in6_ifreq req = Ipv6Request(vdev, ifr->ifr_ifindex);
  if (nic_ioctl_fn(sock->get(), SIOCSIFADDR, &req) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCSIFADDR failed.(errno=%d)", errno);
    return kSetAddress;
  }
  *address_set = true;
  return RaiseDevice(sock->get(), ifr);
}

int AddIpv4(const vdevinfo* vdev, ifreq* ifr, vyr::UniqueFd* sock, bool* address_set) {
  sock->reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!sock->valid()) {
    NIC_TRACE(TRACE_ERROR, "scoket failed.(errno=%d)", errno);
    return kSocket;
  }
  SetInet(&ifr->ifr_addr, vdev->nipel.addr);
  if (nic_ioctl_fn(sock->get(), SIOCSIFADDR, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCSIFADDR failed.(errno=%d)", errno);
    return kSetAddress;
  }
  *address_set = true;
  SetInet(&ifr->ifr_netmask, vdev->nipel.mask);
  if (nic_ioctl_fn(sock->get(), SIOCSIFNETMASK, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCSIFNETMASK failed.(errno=%d)", errno);
    return kSetMask;
  }
  in_addr bcast{};
  inet_pton(AF_INET, vdev->bcast, &bcast);
  SetInet(&ifr->ifr_broadaddr, bcast);
  if (nic_ioctl_fn(sock->get(), SIOCSIFBRDADDR, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCSIFBRDADDR failed.(errno=%d)", errno);
    return kSetBroadcast;
  }
  return RaiseDevice(sock->get(), ifr);
}

int DeleteIpv6(const vdevinfo* vdev, ifreq* ifr) {
  vyr::UniqueFd sock(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!sock.valid()) {
    NIC_TRACE(TRACE_ERROR, "socket failed.(errno=%d)", errno);
    return kSocket;
  }
  if (nic_ioctl_fn(sock.get(), SIOCGIFINDEX, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCGIFINDEX failed.(errno=%d)", errno);
    return kGetIndex;
  }
  in6_ifreq req = Ipv6Request(vdev, ifr->ifr_ifindex);
  if (nic_ioctl_fn(sock.get(), SIOCDIFADDR, &req) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCDIFADDR failed.(errno=%d)", errno);
    return kDeleteIpv6;
  }
  NIC_TRACE(TRACE_INFO, "Delete IP successfully.");
  return 0;
}

int DeleteIpv4(const vdevinfo* vdev, ifreq* ifr, ifreq* null_ip) {
  vyr::UniqueFd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!sock.valid()) {
    NIC_TRACE(TRACE_ERROR, "socket failed.(errno=%d)", errno);
    return kSocket;
  }
  if (nic_ioctl_fn(sock.get(), SIOCGIFFLAGS, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCGIFFLAGS failed.(errno=%d)", errno);
    return kGetFlagsOrAddress;
  }
  // Taking an alias device down removes its address.
  ifr->ifr_flags = static_cast<short>(ifr->ifr_flags & ~IFF_UP);
  if (nic_ioctl_fn(sock.get(), SIOCSIFFLAGS, ifr) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCSIFFLAGS failed.(errno=%d)", errno);
    return kSetFlags;
  }
  if (nic_ioctl_fn(sock.get(), SIOCGIFADDR, ifr) < 0) {
    if (errno == EADDRNOTAVAIL) {
      NIC_TRACE(TRACE_INFO, "Delete IP successfully.");
      return 0;
    }
    NIC_TRACE(TRACE_ERROR, "SIOCGIFADDR failed.(errno=%d)", errno);
    return kGetFlagsOrAddress;
  }
  sockaddr_in current{};
  std::memcpy(&current, &ifr->ifr_addr, sizeof current);
  if (current.sin_family != AF_INET || current.sin_addr.s_addr != vdev->nipel.addr.s_addr) {
    return 0;  // the device carries some other address: leave it alone
  }
  // Setting 0.0.0.0 deletes the address the device still carries.
  SetInet(&null_ip->ifr_addr, in_addr{});
  if (nic_ioctl_fn(sock.get(), SIOCSIFADDR, null_ip) < 0) {
    NIC_TRACE(TRACE_ERROR, "SIOCSIFADDR [0.0.0.0] failed.");
    return kSetAddress;
  }
  NIC_TRACE(TRACE_INFO, "Delete IP successfully.");
  return 0;
}

}  // namespace

int nic_act_ipaddr_ioctl(struct vdevinfo* vdev) {
  NIC_TRACE(TRACE_DETAIL, "nic_act_ipaddr_ioctl(%s)  ENTRY...", vdev->sipel.addr);
  ifreq ifr{};
  NameRequest(vdev, &ifr);
  bool address_set = false;
  vyr::UniqueFd sock;
  int ret = nic_ipck(vdev->sipel.addr) ? AddIpv6(vdev, &ifr, &sock, &address_set)
                                       : AddIpv4(vdev, &ifr, &sock, &address_set);
  if (ret != 0 && address_set) {
    // Never leave a half-configured address behind.
    int undo = nic_deact_ipaddr_ioctl(vdev);
    if (undo != 0) {
      NIC_TRACE(TRACE_ERROR, "nic_deact_ipaddr_ioctl(%s) failed.(ret=%d)", vdev->sipel.addr, undo);
    } else {
      NIC_TRACE(TRACE_DETAIL, "nic_deact_ipaddr_ioctl() succeeded.");
    }
  }
  NIC_TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int nic_deact_ipaddr_ioctl(struct vdevinfo* vdev) {
  NIC_TRACE(TRACE_DETAIL, "nic_deact_ipaddr_ioctl(%s)  ENTRY...", vdev->sipel.addr);
  ifreq ifr{};
  ifreq null_ip{};
  NameRequest(vdev, &ifr);
  NameRequest(vdev, &null_ip);
  int ret = nic_ipck(vdev->sipel.addr) ? DeleteIpv6(vdev, &ifr) : DeleteIpv4(vdev, &ifr, &null_ip);
  NIC_TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
