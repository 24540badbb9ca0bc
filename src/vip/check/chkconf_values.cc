// The check functions of the virtual IP property table.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "chklog/chklog.h"
#include "tracersc/tracersc.h"
#include "vip/address/addrtext.h"
#include "vip/check/chkconf.h"
#include "vip/base/globals.h"
#include "vip/base/vip_info.h"

int srcipaddrflag = 0;

const struct property vip_chk_properties[VIP_CHK_PROPERTY_COUNT] = {
    {"IP Address", CHK_PROP_TEXT, VIP_ADDRBUF_LEN, "/root/resource/vip@%s/parameters/ip",
     "/root/resource/vip@%s/server@%s/parameters/ip", vip_vipaddr_check, vip_vipaddr_check, 0},
    {"NIC Alias Name", CHK_PROP_TEXT, VIP_NAME_LEN, "/root/resource/vip@%s/parameters/ifname",
     "/root/resource/vip@%s/server@%s/parameters/ifname", vip_ifname_check, vip_ifname_check, 0},
    {"Destination IP Address", CHK_PROP_TEXT, VIP_ADDRBUF_LEN,
     "/root/resource/vip@%s/parameters/multicast/dstaddr",
     "/root/resource/vip@%s/server@%s/parameters/multicast/dstaddr", vip_destipaddr_check,
     vip_destipaddr_check, 0},
    {"Source IP Address", CHK_PROP_TEXT, VIP_ADDRBUF_LEN,
     "/root/resource/vip@%s/parameters/multicast/srcaddr",
     "/root/resource/vip@%s/server@%s/parameters/multicast/srcaddr", vip_srcipaddr_check,
     vip_srcipaddr_server_check, 1},
    {"Send Interval", CHK_PROP_INT, static_cast<int>(sizeof(int)),
     "/root/resource/vip@%s/parameters/multicast/interval",
     "/root/resource/vip@%s/server@%s/parameters/multicast/interval", vip_interval_check,
     vip_interval_check, 0},
    {"Routing Protocol", CHK_PROP_TEXT, 64, "/root/resource/vip@%s/parameters/protocol",
     "/root/resource/vip@%s/server@%s/parameters/protocol", vip_protocol_check, vip_protocol_check,
     0},
};

namespace {

constexpr int kIntervalMin = 1;
constexpr int kIntervalMax = 30;
constexpr std::size_t kProtocolWork = 1025;  // the value, its comma and the terminator

constexpr const char* kProtocols[] = {"RIPver1", "RIPver2", "RIPngver1", "RIPngver2", "RIPngver3"};

const char* Text(void* value) { return value ? static_cast<const char*>(value) : ""; }

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool IsKnownProtocol(const char* name) {
  for (const char* known : kProtocols) {
    if (std::strcmp(name, known) == 0) return true;
  }
  return false;
}

// One element of the routing protocol list: at most one finding.
int CheckProtocolElement(const char* element) {
  std::size_t len = std::strlen(element);
  if (len == 0) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_EMPTY_ERR);
  } else if (IsBlank(element[0])) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_TOP_ERR, element);
  } else if (IsBlank(element[len - 1])) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_TAIL_ERR, element);
  } else if (!IsKnownProtocol(element)) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_ERR, element);
  } else {
    return 0;
  }
  return 1;
}

// Not empty, then the shared address test; `name` names the property.
int CheckNamedAddress(void* value, const char* name) {
  const char* text = Text(value);
  if (text[0] == '\0') {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, name);
    return 1;
  }
  return vip_ipaddr_check(text);
}

}  // namespace

int vip_ipaddr_check(const char* value) {
  const char* text = value ? value : "";
  if (text[0] == '\0') {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, "IP address");
    return 1;
  }
  vip_ipck(text);
  unsigned char addr[sizeof(struct in6_addr)];
  if (inet_pton(ipv6flag ? AF_INET6 : AF_INET, text, addr) < 1) {
    TRACE(TRACE_DETAIL, "inet_pton(%s) failed.", text);
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_IPADDR_ERR, text);
    return 1;
  }
  return 0;
}

int vip_vipaddr_check(void* value) {
  TRACE(TRACE_DETAIL, "vip_vipaddr_check()  ENTRY...");
  const char* text = Text(value);
  VIP_INFO scratch{};
  vip_ipck(text);
  int ret = vip_div_ipmask(text, scratch.addr, scratch.mask, &scratch.masklen);
  if (ret != 0 || scratch.masklen < 0) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, text);
    return 1;
  }
  if (scratch.addr[0] == '\0') {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, "IP address");
    return 1;
  }
  return vip_ipaddr_check(scratch.addr);
}

int vip_ifname_check(void* value) {
  TRACE(TRACE_DETAIL, "vip_ifname_check()  ENTRY...");
  if (Text(value)[0] != '\0') return 0;
  CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, "NIC Alias Name");
  return 1;
}

int vip_destipaddr_check(void* value) {
  TRACE(TRACE_DETAIL, "vip_destipaddr_check()  ENTRY...");
  return CheckNamedAddress(value, "Destination IP Address");
}

int vip_srcipaddr_check(void* value) {
  TRACE(TRACE_DETAIL, "vip_srcipaddr_check()  ENTRY...");
  return CheckNamedAddress(value, "Source IP Address");
}

int vip_srcipaddr_server_check(void* value) {
  TRACE(TRACE_DETAIL, "vip_srcipaddr_server_check()  ENTRY...");
  const char* text = Text(value);
  if (text[0] != '\0') return vip_ipaddr_check(text);
  // Written once per run however many servers lack the value.
  if (srcipaddrflag == 0) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_REQUIRED_ERR, "Source IP Address");
    srcipaddrflag = 1;
  }
  return 1;
}

int vip_interval_check(void* value) {
  TRACE(TRACE_DETAIL, "vip_interval_check()  ENTRY...");
  int interval = 0;
  if (value) std::memcpy(&interval, value, sizeof interval);
  if (interval >= kIntervalMin && interval <= kIntervalMax) return 0;
  CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_RANGE_ERR, "Send Interval", interval);
  return 1;
}

int vip_protocol_check(void* value) {
  TRACE(TRACE_DETAIL, "vip_protocol_check()  ENTRY...");
  const char* text = Text(value);
  if (text[0] == '\0') {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, "Routing Protocol");
    return 1;
  }
  // Every element, the last one included, ends with a comma.
  char work[kProtocolWork] = {};
  std::size_t len = strnlen(text, kProtocolWork - 2);
  std::memcpy(work, text, len);
  work[len] = ',';

  int found = 0;
  char* element = work;
  while (*element != '\0') {
    char* comma = std::strchr(element, ',');
    *comma = '\0';
    found |= CheckProtocolElement(element);
    element = comma + 1;
  }
  return found;
}
