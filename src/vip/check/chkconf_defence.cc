// Check mode for the settings that defend the address (the advertisement
// count, the DAD wait, the times of the ARP probe and of the agent's own
// duplicate detection, the announcements' pace, the short critical section
// and the time of the link check after a removal) and for those of its
// change through rtnetlink (ipaddr/...). Each is optional (a missing one
// keeps its default and is no finding); a number that is set must be inside
// the range the resource type's policy gives it, a label a short legal name
// and a broadcast address "none" or an IPv4 address.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "chklog/chklog.h"
#include "chkutil/chkutil.h"
#include "tracersc/tracersc.h"
#include "vip/base/vip_info.h"
#include "vip/check/chkconf.h"
#include "vyrxml.h"

namespace {

// `param.path` is the path with %s for the resource; `param.index` its range
// entry in the policy.
constexpr numeric_param kDefence[] = {
    {"NA Retry", "/root/resource/vip@%s/parameters/na/retry", "4"},
    {"DAD Timeout", "/root/resource/vip@%s/parameters/dad/timeout", "5"},
    {"ARP Probe Timeout", "/root/resource/vip@%s/parameters/arpprobe/timeout", "6"},
    {"DAD Probe", "/root/resource/vip@%s/parameters/dad/probe", "7"},
    {"ARP Interval", "/root/resource/vip@%s/parameters/arp/interval", "8"},
    {"ARP Background", "/root/resource/vip@%s/parameters/arp/background", "9"},
    {"Short Lock", "/root/resource/vip@%s/parameters/lock/short", "10"},
    {"Rtnetlink", "/root/resource/vip@%s/parameters/ipaddr/netlink", "11"},
    {"No DAD", "/root/resource/vip@%s/parameters/ipaddr/nodad", "11"},
    {"No Prefix Route", "/root/resource/vip@%s/parameters/ipaddr/noprefixroute", "11"},
    {"Preferred Lifetime", "/root/resource/vip@%s/parameters/ipaddr/preferred_lft", "12"},
    {"No Label", "/root/resource/vip@%s/parameters/ipaddr/nolabel", "11"},
    {"ARP Check Timeout", "/root/resource/vip@%s/parameters/check/arp/timeout", "13"},
    {"ARP Check Background", "/root/resource/vip@%s/parameters/check/arp/background", "9"},
};
// The longest label: the shortest interface name and the ':' leave 13 of
// the kernel's 15 characters. The run checks the whole name.
constexpr std::size_t kMaxLabel = 13;
// The number the out-of-range lines carry, as for every numeric check.
constexpr int kRangeErrorId = 4;

enum class Presence { kAbsent, kNumber, kFinding, kUnreadable };

// Whether the setting is there and a number; a value that is not is written
// to the check log here.
Presence Examine(const numeric_param& param, const char* rscname) {
  char path[VIP_PATH_LEN];
  std::snprintf(path, sizeof path, param.path, rscname);
  int value = 0;
  int size = static_cast<int>(sizeof value);
  int ret = xmllib_get_value(path, VYR_XMLTYPE_INT, &value, &size);
  if (ret == VYR_XMLERR_SUCCESS) return Presence::kNumber;
  if (ret == VYR_XMLERR_NOTEXIST_PATH) return Presence::kAbsent;
  if (ret == VYR_XMLERR_NOTEXIST_VALUE) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, param.name);
    return Presence::kFinding;
  }
  char text[CHK_VALUE_LEN] = {};
  size = CHK_VALUE_LEN;
  if (ret == VYR_XMLERR_INVALID_CONTENTS &&
      xmllib_get_value(path, VYR_XMLTYPE_TEXT, text, &size) == VYR_XMLERR_SUCCESS) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_NUMBER_ERR, param.name, text);
    return Presence::kFinding;
  }
  TRACE(TRACE_ERROR, "xmllib_get_value(%s, %d) failed. (ret=%d)", path, VYR_XMLTYPE_INT, ret);
  return Presence::kUnreadable;
}

// A text setting of the resource into `value`: false when it is missing
// (or empty), or cannot be read.
bool ReadText(const char* key, const char* rscname, char (&value)[CHK_VALUE_LEN]) {
  char path[VIP_PATH_LEN];
  std::snprintf(path, sizeof path, "/root/resource/vip@%s/parameters/%s", rscname, key);
  int size = CHK_VALUE_LEN;
  return xmllib_get_value(path, VYR_XMLTYPE_TEXT, value, &size) == VYR_XMLERR_SUCCESS &&
         value[0] != '\0';
}

bool LegalLabel(const char* label) {
  const std::size_t len = std::strlen(label);
  if (len > kMaxLabel) return false;
  for (std::size_t i = 0; i < len; ++i) {
    const auto c = static_cast<unsigned char>(label[i]);
    if (c <= ' ' || c >= 0x7F || c == '/') return false;
  }
  return true;
}

// The label and the broadcast address: 0, or 1 with a finding each.
int CheckTexts(const char* rscname) {
  int ret = CHK_RESULT_GOOD;
  char value[CHK_VALUE_LEN] = {};
  if (ReadText("ipaddr/label", rscname, value) && !LegalLabel(value)) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_NIC_ERR, value);
    ret = CHK_RESULT_FINDING;
  }
  in_addr parsed{};
  if (ReadText("ipaddr/broadcast", rscname, value) && std::strcmp(value, "none") != 0 &&
      inet_pton(AF_INET, value, &parsed) != 1) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_IPADDR_ERR, value);
    ret = CHK_RESULT_FINDING;
  }
  return ret;
}

}  // namespace

int vip_defence_check(const char* rscname) {
  TRACE(TRACE_DETAIL, "vip_defence_check()  ENTRY...");
  const char* name = rscname ? rscname : "";
  int ret = CHK_RESULT_GOOD;
  // One setting at a time, so the findings come in table order.
  for (const numeric_param& param : kDefence) {
    int one = CHK_RESULT_GOOD;
    switch (Examine(param, name)) {
      case Presence::kNumber:
        one = check_numeric_values(name, &param, 1, kRangeErrorId);
        break;
      case Presence::kFinding:
        one = CHK_RESULT_FINDING;
        break;
      case Presence::kUnreadable:
        one = CHK_RESULT_INCOMPLETE;
        break;
      case Presence::kAbsent:
        break;
    }
    if (one == CHK_RESULT_INCOMPLETE) {
      ret = one;
      break;
    }
    ret |= one;
  }
  if (ret != CHK_RESULT_INCOMPLETE) ret |= CheckTexts(name);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
