#include "nicCommon/ifaddrs_list.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

namespace vyr {

namespace {

// The interface part of a device name ("eth0" of "eth0:1") is the same.
bool SameInterface(const char* a, const char* b) {
  const std::size_t la = std::strcspn(a, ":");
  return la == std::strcspn(b, ":") && std::strncmp(a, b, la) == 0;
}

bool SameAddress(const sockaddr* sa, int family, const void* addr) {
  if (sa == nullptr || sa->sa_family != family) return false;
  if (family == AF_INET6) {
    return std::memcmp(&reinterpret_cast<const sockaddr_in6*>(sa)->sin6_addr, addr,
                       sizeof(in6_addr)) == 0;
  }
  return std::memcmp(&reinterpret_cast<const sockaddr_in*>(sa)->sin_addr, addr, sizeof(in_addr)) ==
         0;
}

}  // namespace

IfaddrsList ReadIfaddrs() {
  ifaddrs* raw = nullptr;
  if (::getifaddrs(&raw) != 0) return IfaddrsList();
  return IfaddrsList(raw);
}

int AddressOnInterface(const char* device, int family, const void* addr) {
  const IfaddrsList list = ReadIfaddrs();
  if (!list) return -1;
  for (const ifaddrs* ifa = list.get(); ifa != nullptr; ifa = ifa->ifa_next) {
    if (SameInterface(ifa->ifa_name, device) && SameAddress(ifa->ifa_addr, family, addr)) return 1;
  }
  return 0;
}

}  // namespace vyr
