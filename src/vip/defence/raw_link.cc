#include "vip/defence/raw_link.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "nicCommon/ifaddrs_list.h"

namespace vyr {

namespace {

// The interface part of `name` into the request (at most 15 characters).
void NameRequest(const char* name, ifreq* ifr) {
  const int len = static_cast<int>(std::strcspn(name, ":"));
  std::snprintf(ifr->ifr_name, sizeof ifr->ifr_name, "%.*s", len, name);
}

// The one's complement sum of `len` bytes, folded later.
uint32_t SumWords(const unsigned char* data, std::size_t len, uint32_t sum) {
  for (std::size_t i = 0; i + 1 < len; i += 2) {
    sum += static_cast<uint32_t>(data[i] << 8 | data[i + 1]);
  }
  if (len % 2 != 0) sum += static_cast<uint32_t>(data[len - 1] << 8);
  return sum;
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

bool LinkLocal(const char* device, in6_addr* out) {
  const IfaddrsList list = ReadIfaddrs();
  if (!list) return false;
  for (const ifaddrs* ifa = list.get(); ifa != nullptr; ifa = ifa->ifa_next) {
    if (ifa->ifa_addr == nullptr || ifa->ifa_addr->sa_family != AF_INET6) continue;
    if (std::strcmp(ifa->ifa_name, device) != 0) continue;
    const in6_addr& addr = reinterpret_cast<const sockaddr_in6*>(ifa->ifa_addr)->sin6_addr;
    if (IN6_IS_ADDR_LINKLOCAL(&addr)) {
      *out = addr;
      return true;
    }
  }
  return false;
}

uint16_t Icmpv6Checksum(const unsigned char* source, const unsigned char* dest,
                        const unsigned char* message, std::size_t len) {
  uint32_t sum = SumWords(source, 16, 0);
  sum = SumWords(dest, 16, sum);
  sum += static_cast<uint32_t>(len);
  sum += kIcmpv6;
  sum = SumWords(message, len, sum);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum & 0xffff);
}

}  // namespace vyr
