#include "vip/defence/raw_link.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

namespace vyr {

namespace {

// The interface part of `name` into the request (at most 15 characters).
void NameRequest(const char* name, ifreq* ifr) {
  const int len = static_cast<int>(std::strcspn(name, ":"));
  std::snprintf(ifr->ifr_name, sizeof ifr->ifr_name, "%.*s", len, name);
}

}  // namespace

UniqueFd OpenPacketSocket() { return UniqueFd(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)); }

unsigned LinkIndex(int fd, const char* name) {
  ifreq ifr{};
  NameRequest(name, &ifr);
  if (::ioctl(fd, SIOCGIFINDEX, &ifr) < 0) return 0;
  return static_cast<unsigned>(ifr.ifr_ifindex);
}

bool LinkMac(int fd, const char* name, unsigned char* mac) {
  ifreq ifr{};
  NameRequest(name, &ifr);
  if (::ioctl(fd, SIOCGIFHWADDR, &ifr) < 0) return false;
  std::memcpy(mac, ifr.ifr_hwaddr.sa_data, kMacLen);
  return true;
}

bool BindLink(int fd, unsigned ifindex, uint16_t ethertype) {
  sockaddr_ll at{};
  at.sll_family = AF_PACKET;
  at.sll_protocol = htons(ethertype);
  at.sll_ifindex = static_cast<int>(ifindex);
  return ::bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
}

bool SendFrame(int fd, unsigned ifindex, const void* frame, std::size_t len) {
  sockaddr_ll to{};
  to.sll_ifindex = static_cast<int>(ifindex);
  ssize_t sent = ::sendto(fd, frame, len, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  return sent == static_cast<ssize_t>(len);
}

void FormatMac(const unsigned char* mac, char* out, std::size_t outlen) {
  std::snprintf(out, outlen, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
}

}  // namespace vyr
