#include "vip/sequence/sequence_util.h"

#include <arpa/inet.h>

#include <cstring>

#include "vip/settings/bindings.h"
#include "vip/address/listing.h"

namespace vyr {

IfconfigCriticalSection::IfconfigCriticalSection() { vip_sem_entercrit_ifconfig(); }

void IfconfigCriticalSection::Leave() {
  if (!held_) return;
  held_ = false;
  vip_sem_leavecrit_ifconfig();
}

int ProbeNpsimuFlag(int pingnpsimu) {
  if (pingnpsimu != 0) return 0;
  int flag = 0;
  if (vip_shmnm_getnpsimuflag(&flag) != 0) return 0;
  return flag;
}

NetAddress ToNetAddress(const char* text, bool ipv6) {
  NetAddress address;
  address.ipv6 = ipv6;
  if (ipv6) {
    inet_pton(AF_INET6, text, &address.v6);
  } else {
    inet_pton(AF_INET, text, &address.v4);
  }
  return address;
}

int FindAddress(const ipaddrinfo* list, int num, const NetAddress& address) {
  for (int i = 0; i < num; ++i) {
    const bool same = address.ipv6
                          ? std::memcmp(&list[i].nipel6.addr, &address.v6, sizeof address.v6) == 0
                          : std::memcmp(&list[i].nipel.addr, &address.v4, sizeof address.v4) == 0;
    if (same) return i;
  }
  return -1;
}

int ListAddresses(const char* cmdpath, int timeout, AddrList* list, int* num) {
  ipaddrinfo* raw = nullptr;
  int count = 0;
  int ret = vip_ifconfig_mkth(&raw, &count, cmdpath, timeout);
  if (ret != 0) {
    std::free(raw);
    return ret;
  }
  list->reset(raw);
  *num = count;
  return 0;
}

}  // namespace vyr
