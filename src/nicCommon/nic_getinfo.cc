#include "nicCommon/nic_getinfo.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "nicCommon/ifaddrs_list.h"
#include "tracersc/tracersc.h"

namespace {

using vyr::IfaddrsList;

bool IsLoopbackName(const char* name) { return name != nullptr && std::strcmp(name, "lo") == 0; }

// An element that becomes a list entry: an IPv4 or IPv6 address outside lo.
// Interface flags are not looked at, so addresses on a down device count.
bool IsListedAddress(const ifaddrs* ifa) {
  if (ifa->ifa_addr == nullptr || IsLoopbackName(ifa->ifa_name)) return false;
  const int family = ifa->ifa_addr->sa_family;
  return family == AF_INET || family == AF_INET6;
}

bool IsLinkLayer(const ifaddrs* ifa) {
  return ifa->ifa_addr != nullptr && !IsLoopbackName(ifa->ifa_name) &&
         ifa->ifa_addr->sa_family == AF_PACKET;
}

void CopyName(ipaddrinfo* entry, const char* name) {
  std::snprintf(entry->ifname, sizeof entry->ifname, "%s", name ? name : "");
}

// Every set bit of the mask counts, also in a mask that is not contiguous.
int CountMaskBits(const in6_addr& mask) {
  int bits = 0;
  for (unsigned char byte : mask.s6_addr) {
    for (int bit = 0; bit < 8; ++bit) bits += (byte >> bit) & 1;
  }
  return bits;
}

void FillIpv4(const ifaddrs* ifa, ipaddrinfo* entry) {
  const auto* addr = reinterpret_cast<const sockaddr_in*>(ifa->ifa_addr);
  entry->nipel.addr = addr->sin_addr;
  ::inet_ntop(AF_INET, &entry->nipel.addr, entry->sipel.addr, sizeof entry->sipel.addr);
  // The kernel gives a netmask with every address; without one the mask
  // stays zero and empty rather than being read through a null pointer.
  if (ifa->ifa_netmask != nullptr && ifa->ifa_netmask->sa_family == AF_INET) {
    entry->nipel.mask = reinterpret_cast<const sockaddr_in*>(ifa->ifa_netmask)->sin_addr;
    ::inet_ntop(AF_INET, &entry->nipel.mask, entry->sipel.mask, sizeof entry->sipel.mask);
  }
}

void FillIpv6(const ifaddrs* ifa, ipaddrinfo* entry) {
  const auto* addr = reinterpret_cast<const sockaddr_in6*>(ifa->ifa_addr);
  entry->nipel6.addr = addr->sin6_addr;
  ::inet_ntop(AF_INET6, &entry->nipel6.addr, entry->sipel.addr, sizeof entry->sipel.addr);
  if (ifa->ifa_netmask != nullptr && ifa->ifa_netmask->sa_family == AF_INET6) {
    entry->nipel6.mask = reinterpret_cast<const sockaddr_in6*>(ifa->ifa_netmask)->sin6_addr;
    entry->sipel.masklen = CountMaskBits(entry->nipel6.mask);
  }
}

int CountListed(const ifaddrs* list) {
  int count = 0;
  for (const ifaddrs* ifa = list; ifa != nullptr; ifa = ifa->ifa_next) {
    if (IsListedAddress(ifa)) ++count;
  }
  return count;
}

void FillEntries(const ifaddrs* list, ipaddrinfo* entries) {
  unsigned int k = 0;
  for (const ifaddrs* ifa = list; ifa != nullptr; ifa = ifa->ifa_next) {
    if (!IsListedAddress(ifa)) continue;
    ipaddrinfo* entry = &entries[k];
    CopyName(entry, ifa->ifa_name);
    entry->index = k;
    if (ifa->ifa_addr->sa_family == AF_INET) {
      FillIpv4(ifa, entry);
    } else {
      FillIpv6(ifa, entry);
    }
    ++k;
  }
}

// The entry's interface: its name up to the first ':' (eth0:1 -> eth0).
bool BelongsTo(const ipaddrinfo& entry, const char* ifname) {
  const char* colon = std::strchr(entry.ifname, ':');
  const std::size_t len =
      colon ? static_cast<std::size_t>(colon - entry.ifname) : std::strlen(entry.ifname);
  return std::strlen(ifname) == len && std::strncmp(entry.ifname, ifname, len) == 0;
}

// Gives every entry of the element's interface that has no MAC text yet the
// element's link-layer address. Addresses longer than macaddr are cut.
void AttachLinkLayer(const ifaddrs* ifa, ipaddrinfo* entries, int count) {
  const auto* ll = reinterpret_cast<const sockaddr_ll*>(ifa->ifa_addr);
  std::size_t len = ll->sll_halen;
  if (len > sizeof entries->macaddr) len = sizeof entries->macaddr;
  if (len > sizeof ll->sll_addr) len = sizeof ll->sll_addr;
  char text[sizeof entries->smac] = {};
  for (std::size_t i = 0; i < len; ++i) {
    std::snprintf(text + 2 * i, sizeof text - 2 * i, "%02X", ll->sll_addr[i]);
  }
  for (int k = 0; k < count; ++k) {
    ipaddrinfo& entry = entries[k];
    if (entry.smac[0] != '\0' || !BelongsTo(entry, ifa->ifa_name)) continue;
    std::snprintf(entry.smac, sizeof entry.smac, "%s", text);
    std::memcpy(entry.macaddr, ll->sll_addr, len);
  }
}

int BuildList(struct ipaddrinfo** ipaddrlist, int* num) {
  ifaddrs* raw = nullptr;
  if (::getifaddrs(&raw) != 0) {
    TRACE(TRACE_ERROR, "getifaddrs() failed.(errno=%d)", errno);
    return vyr::nic_getinfo::kUnreadable;
  }
  IfaddrsList list(raw);

  const int count = CountListed(list.get());
  if (count == 0) {
    TRACE(TRACE_ERROR, "no ip address found.");
    return vyr::nic_getinfo::kNoAddress;
  }
  *num = count;
  const std::size_t bytes = sizeof(ipaddrinfo) * static_cast<std::size_t>(count);
  auto* entries =
      static_cast<ipaddrinfo*>(std::calloc(static_cast<std::size_t>(count), sizeof(ipaddrinfo)));
  if (entries == nullptr) {
    TRACE(TRACE_ERROR, "malloc(%d) failed. (errno=%d)", static_cast<int>(bytes), errno);
    return vyr::nic_getinfo::kNoMemory;
  }
  FillEntries(list.get(), entries);
  for (const ifaddrs* ifa = list.get(); ifa != nullptr; ifa = ifa->ifa_next) {
    if (IsLinkLayer(ifa)) AttachLinkLayer(ifa, entries, count);
  }
  *ipaddrlist = entries;
  return 0;
}

}  // namespace

int nic_get_all_info(struct ipaddrinfo** ipaddrlist, int* num) {
  TRACE(TRACE_DETAIL, "nic_get_all_info()  ENTRY...");
  const int ret = BuildList(ipaddrlist, num);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
