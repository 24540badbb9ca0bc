#include "nicCommon/nic_ipck.h"

#include "tracersc/tracersc.h"
#include "vip/addrtext.h"

int nic_ipck(const char* paddr) {
  TRACE(TRACE_DETAIL, "nic_ipck()  ENTRY...");
  const int ret = vip_addr_is_ipv6(paddr) ? 1 : 0;
  TRACE(TRACE_DETAIL, ret ? "IPv6 address." : "IPv4 address.");
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
