// Check mode for the settings that defend the address: the advertisement
// count, the DAD wait, the times of the ARP probe and of the agent's own
// duplicate detection, the announcements' pace and the short critical
// section. Each is optional (a missing
// one keeps its default of 0 and is no finding); one that is set must be a
// number inside the range the resource type's policy gives it.
#include <cstdio>

#include "chklog/chklog.h"
#include "chkutil/chkutil.h"
#include "tracersc/tracersc.h"
#include "vip/check/chkconf.h"
#include "vip/base/vip_info.h"
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
};
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
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
