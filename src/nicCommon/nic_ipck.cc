#include "nicCommon/nic_ipck.h"

#include <cstring>

#include "tracersc/tracersc.h"

bool nic_addr_is_ipv6(const char* paddr) {
  if (paddr == nullptr) return false;
  const char* colon = std::strchr(paddr, ':');
  if (colon == nullptr) return false;
  const char* percent = std::strchr(paddr, '%');
  // A zone suffix may carry a colon of its own (an alias name such as
  // eth0:1), so only a colon before the '%' makes the text IPv6.
  return percent == nullptr || colon < percent;
}

int nic_ipck(const char* paddr) {
  TRACE(TRACE_DETAIL, "nic_ipck()  ENTRY...");
  const int ret = nic_addr_is_ipv6(paddr) ? 1 : 0;
  TRACE(TRACE_DETAIL, ret ? "IPv6 address." : "IPv4 address.");
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
