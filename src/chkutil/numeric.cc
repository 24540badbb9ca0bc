// Integer parameters judged against the ranges the loaded policy declares.
#include <cstring>

#include "chklog/chklog.h"
#include "chkutil/chkutil.h"
#include "tracersc/tracersc.h"
#include "vyrxml.h"

namespace {

// Type tags of a range entry in the policy.
constexpr int kTagRange = 1;   // minimum and maximum given
constexpr int kTagFlag = 2;    // 0 or 1
constexpr int kTagSwitch = 3;  // 0 or 1

struct Range {
  int minimum = 0;
  int maximum = 1;
};

enum class RangeResult { kFound, kSkip, kFailed };

// Reads one integer; traces and returns the library's code on failure.
int ReadInt(const char* path, int* value) {
  int size = static_cast<int>(sizeof(int));
  *value = 0;
  int ret = xmllib_get_value(path, VYR_XMLTYPE_INT, value, &size);
  if (ret != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_ERROR, "xmllib_get_value(%s, %d) failed. (ret=%d)", path, VYR_XMLTYPE_INT, ret);
  }
  return ret;
}

bool PolicyPath(char* out, const char* tmpl, const char* index) {
  const char* args[] = {index};
  if (chk_fill_path(out, CHK_VALUE_LEN, tmpl, args, 1)) return true;
  TRACE(TRACE_ERROR, "Path %s cannot be formed for %s.", tmpl, index);
  return false;
}

RangeResult FindRange(const numeric_param& param, Range* range) {
  *range = Range{};
  if (param.index == nullptr) return RangeResult::kFound;

  char path[CHK_VALUE_LEN];
  int tag = 0;
  if (!PolicyPath(path, "/root/resource/fip/param%s/type", param.index)) {
    return RangeResult::kFailed;
  }
  if (ReadInt(path, &tag) != VYR_XMLERR_SUCCESS) return RangeResult::kFailed;
  if (tag == kTagFlag || tag == kTagSwitch) return RangeResult::kFound;
  if (tag != kTagRange) {
    TRACE(TRACE_ERROR, "Value of type tag %s is invalid. (value=%d)", path, tag);
    return RangeResult::kSkip;
  }
  if (!PolicyPath(path, "/root/resource/fip/param%s/minimum", param.index) ||
      ReadInt(path, &range->minimum) != VYR_XMLERR_SUCCESS) {
    return RangeResult::kFailed;
  }
  if (!PolicyPath(path, "/root/resource/fip/param%s/maximum", param.index) ||
      ReadInt(path, &range->maximum) != VYR_XMLERR_SUCCESS) {
    return RangeResult::kFailed;
  }
  return RangeResult::kFound;
}

}  // namespace

int check_numeric_values(const char* rscname, const struct numeric_param* params, int length,
                         int errorid) {
  TRACE(TRACE_DETAIL, "check_numeric_values()  ENTRY...");
  int ret = CHK_RESULT_GOOD;
  int findings = 0;
  for (int i = 0; ret == CHK_RESULT_GOOD && i < length; ++i) {
    const numeric_param& param = params[i];
    char path[CHK_VALUE_LEN];
    const char* args[] = {rscname ? rscname : ""};
    int value = 0;
    if (!chk_fill_path(path, CHK_VALUE_LEN, param.path, args, 1)) {
      TRACE(TRACE_ERROR, "Path %s cannot be formed for %s.", param.path ? param.path : "(null)",
            args[0]);
      ret = CHK_RESULT_INCOMPLETE;
      break;
    }
    if (ReadInt(path, &value) != VYR_XMLERR_SUCCESS) {
      ret = CHK_RESULT_INCOMPLETE;
      break;
    }
    Range range;
    RangeResult found = FindRange(param, &range);
    if (found == RangeResult::kFailed) {
      ret = CHK_RESULT_INCOMPLETE;
      break;
    }
    if (found == RangeResult::kSkip) continue;
    const char* name = param.name ? param.name : "";
    if (value < range.minimum || value > range.maximum) {
      chk_log_write(CHK_LEVEL_ERROR, errorid, CHK_ID_RANGE_ERR_MSG, name, value);
      findings = 1;
    } else {
      TRACE(TRACE_DETAIL, "Value of %s is %d.", name, value);
    }
  }
  if (ret == CHK_RESULT_GOOD && findings != 0) ret = CHK_RESULT_FINDING;
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
