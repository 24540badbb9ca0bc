#include "vip/address/addrtext.h"

#include <arpa/inet.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/text.h"
#include "nicCommon/nic_ipck.h"
#include "tracersc/tracersc.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"

namespace {

// The longest address part and prefix part the receiving fields hold.
constexpr std::size_t kAddrPartMax = VIP_ADDR_LEN - 1;
constexpr std::size_t kPrefixPartMax = 15;
constexpr int kMaskStatus = vyr::status::kBadPrefix;
constexpr int kMacStatus = vyr::status::kBadMac;

// Converts the prefix text the way strtol does. The value is saturated to
// the int range, so that a huge prefix never wraps round into a small one.
struct Prefix {
  int value;
  bool trailing;  // characters remain after the number
};

Prefix ParsePrefix(const char* text) {
  char* end = nullptr;
  errno = 0;
  long value = std::strtol(text, &end, 10);
  if (value > INT_MAX) value = INT_MAX;
  if (value < INT_MIN) value = INT_MIN;
  return Prefix{static_cast<int>(value), end != nullptr && *end != '\0'};
}

void BuildMask4(int masklen, char* mask) {
  uint32_t bits = 0;
  if (masklen >= 32) {
    bits = 0xffffffffu;
  } else if (masklen > 0) {
    bits = 0xffffffffu << (32 - masklen);
  }
  struct in_addr net {};
  net.s_addr = htonl(bits);
  inet_ntop(AF_INET, &net, mask, VIP_ADDR_LEN);
}

void BuildMask6(int masklen, char* mask) {
  struct in6_addr net {};
  if (masklen > 0) {
    int full = masklen / 8;
    for (int i = 0; i < full && i < 16; ++i) net.s6_addr[i] = 0xff;
    int rest = masklen % 8;
    if (rest != 0 && full < 16) {
      net.s6_addr[full] = static_cast<uint8_t>(0xff << (8 - rest));
    }
  }
  inet_ntop(AF_INET6, &net, mask, VIP_ADDR_LEN);
}

// Parses one "%x" field the way scanf does (blanks, sign and a 0x prefix are
// accepted); strtoul keeps an over-long field well defined.
bool ScanHexField(const char*& cursor, unsigned long* value) {
  char* end = nullptr;
  unsigned long v = std::strtoul(cursor, &end, 16);
  if (end == cursor) return false;
  *value = v;
  cursor = end;
  return true;
}

}  // namespace

int vip_ipck(const char* paddr) {
  TRACE(TRACE_DETAIL, "vip_ipck()  ENTRY...");
  ipv6flag = 0;
  if (nic_addr_is_ipv6(paddr)) {
    ipv6flag = 1;
    TRACE(TRACE_DETAIL, "IPv6 address.");
  } else {
    TRACE(TRACE_DETAIL, "IPv4 address.");
  }
  TRACE(TRACE_DETAIL, "return(%d)", 0);
  return 0;
}

int vip_div_ipmask(const char* addrbuf, char* addr, char* mask, int* masklen) {
  return vip_div_ipmask(addrbuf, addr, mask, masklen, ipv6flag != 0);
}

int vip_div_ipmask(const char* addrbuf, char* addr, char* mask, int* masklen, bool ipv6) {
  TRACE(TRACE_DETAIL, "vip_div_ipmask()  ENTRY...");
  if (addrbuf == nullptr || addr == nullptr || mask == nullptr || masklen == nullptr) {
    TRACE(TRACE_ERROR, "vip_div_ipmask() got a null argument.");
    return kMaskStatus;
  }
  const char* slash = std::strchr(addrbuf, '/');
  const std::size_t addr_len =
      slash ? static_cast<std::size_t>(slash - addrbuf) : std::strlen(addrbuf);
  if (addr_len > kAddrPartMax) {
    TRACE(TRACE_ERROR, "Address is too long.(length=%zu)", addr_len);
    return kMaskStatus;
  }
  if (slash == nullptr) {
    std::memcpy(addr, addrbuf, addr_len + 1);
    TRACE(TRACE_DETAIL, "return(%d)", 0);
    return 0;
  }
  const char* prefix = slash + 1;
  if (std::strlen(prefix) > kPrefixPartMax) {
    TRACE(TRACE_ERROR, "Mask is too long.(mask=%.15s...)", prefix);
    return kMaskStatus;
  }
  std::memcpy(addr, addrbuf, addr_len);
  addr[addr_len] = '\0';

  const Prefix parsed = ParsePrefix(prefix);
  *masklen = parsed.value;
  if (parsed.trailing) {
    TRACE(TRACE_ERROR, "Mask is invalid.(mask=%s)", prefix);
    return kMaskStatus;
  }
  if (prefix[0] == '\0') {
    TRACE(TRACE_ERROR, "Mask is not set.");
    return kMaskStatus;
  }
  const int max_bits = ipv6 ? 128 : 32;
  if (parsed.value > max_bits) {
    TRACE(TRACE_ERROR, "over max mask bit num.(mask bit=%d)", parsed.value);
    return kMaskStatus;
  }
  if (ipv6) {
    BuildMask6(parsed.value, mask);
  } else {
    BuildMask4(parsed.value, mask);
  }
  TRACE(TRACE_DETAIL, "return(%d)", 0);
  return 0;
}

void vip_chop(char* str) {
  if (str == nullptr) return;
  char* newline = std::strrchr(str, '\n');
  if (newline != nullptr) *newline = '\0';
}

int vip_crt_macaddr(const char* str, unsigned char* mac) {
  TRACE(TRACE_DETAIL, "vip_crt_macaddr()  ENTRY...");
  if (str == nullptr || mac == nullptr) {
    TRACE(TRACE_ERROR, "mac address is null.");
    return vyr::Fail(kMacStatus);
  }
  unsigned long fields[6] = {};
  const char* cursor = str;
  int converted = 0;
  for (; converted < 6; ++converted) {
    if (converted > 0) {
      if (*cursor != ':') break;
      ++cursor;
    }
    if (!ScanHexField(cursor, &fields[converted])) break;
  }
  if (converted < 6) {
    std::memset(mac, 0, 6);
    TRACE(TRACE_ERROR, "mac adderss is invalid.");
    return vyr::Fail(kMacStatus);
  }
  for (int i = 0; i < 6; ++i) mac[i] = static_cast<unsigned char>(fields[i] & 0xffu);
  TRACE(TRACE_DETAIL, "return(%d)", 0);
  return 0;
}

int vip_chk_ifname(const struct ipaddrinfo* ipaddrlist, uint16_t listnum, const char* ifname) {
  if (ipaddrlist == nullptr || ifname == nullptr) return 0;
  for (uint16_t i = 0; i < listnum; ++i) {
    if (vyr::EqualsNoCase(ipaddrlist[i].ifname, ifname)) return 1;
  }
  return 0;
}
