// The check of one virtual IP resource and the switch to the configuration
// under check.
#include "vip/check/chkconf.h"

#include <cstdio>
#include <cstring>

#include "chklog/chklog.h"
#include "tracersc/tracersc.h"
#include "vip/settings/config.h"
#include "vip/base/vip_info.h"
#include "vyrxml.h"

void* hchkconf = nullptr;

namespace {

constexpr int kCommentLen = 128;
constexpr const char* kPolicy = "vip";

// Reads the check configuration's location: install directory and the
// relative path, joined. 0 or vip_xml_get_path's status.
int ChkconfFile(char* file, std::size_t filelen) {
  char dir[VIP_PATH_LEN] = {};
  char relative[VIP_PATH_LEN] = {};
  int size = VIP_PATH_LEN;
  int ret = vip_xml_get_path("all", "/root/all/path", dir, &size);
  if (ret == 0) {
    size = VIP_PATH_LEN;
    ret = vip_xml_get_path("cluster", "/root/cluster/check/chkconf", relative, &size);
  }
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_xml_get_path() failed. (ret=%d)", ret);
    return ret;
  }
  std::snprintf(file, filelen, "%s/%s", dir, relative);
  return 0;
}

// Walks the property table under the resource type's policy. The walk's
// result, or the policy load's code in *failure when it could not run.
int WalkProperties(const char* rscname, int* failure) {
  struct property properties[VIP_CHK_PROPERTY_COUNT];
  std::memcpy(properties, vip_chk_properties, sizeof properties);

  int ret = xmllib_load_policy(kPolicy);
  if (ret != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_ERROR, "xmllib_load_policy() failed. (ret=%d)", ret);
    *failure = ret;
    return 0;
  }
  int verdict = 0;
  ret = check_properties(rscname, properties, VIP_CHK_PROPERTY_COUNT);
  if (ret == CHK_RESULT_INCOMPLETE) {
    TRACE(TRACE_ERROR, "check_properties() failed. (ret=%d)", ret);
    *failure = ret;
  } else {
    verdict = ret;
    ret = vip_defence_check(rscname);
    if (ret == CHK_RESULT_INCOMPLETE) {
      TRACE(TRACE_ERROR, "vip_defence_check() failed. (ret=%d)", ret);
      *failure = ret;
    } else {
      verdict |= ret;
    }
  }
  int unload = xmllib_unload_policy(kPolicy);
  if (unload != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_WARNING, "xmllib_unload_policy(%s) failed. (ret=%d)", kPolicy, unload);
  }
  return verdict;
}

}  // namespace

int vip_load_chkconf(void) {
  TRACE(TRACE_DETAIL, "vip_load_chkconf()  ENTRY...");
  // A second load would lose the first handle.
  vip_unload_chkconf();

  char file[VIP_PATH_LEN * 2 + 2] = {};
  int ret = ChkconfFile(file, sizeof file);
  if (ret != 0) return ret;
  TRACE(TRACE_DETAIL, "new configuration file : %s", file);

  void* handle = nullptr;
  ret = xmllib_load_pathconfig(file, &handle);
  if (ret != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_ERROR, "xmllib_load_pathconfig() failed. (ret=%d)", ret);
    return ret;
  }
  ret = xmllib_change_config(handle);
  if (ret != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_ERROR, "xmllib_change_config() failed. (ret=%d)", ret);
    xmllib_unload_pathconfig(handle);
    return ret;
  }
  hchkconf = handle;
  TRACE(TRACE_DETAIL, "load %s success", file);
  TRACE(TRACE_DETAIL, "return(%d)", 0);
  return 0;
}

void vip_unload_chkconf(void) {
  if (hchkconf == nullptr) return;
  int ret = xmllib_unload_pathconfig(hchkconf);
  if (ret != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_WARNING, "xmllib_unload_pathconfig() failed. (ret=%d)", ret);
  }
  hchkconf = nullptr;
}

int vip_comment_check(const char* rscname) {
  TRACE(TRACE_DETAIL, "vip_comment_check()  ENTRY...");
  char path[VIP_PATH_LEN];
  std::snprintf(path, sizeof path, "/root/resource/vip@%s/comment", rscname ? rscname : "");
  char comment[kCommentLen] = {};
  int size = kCommentLen;
  int ret = xmllib_get_value(path, VYR_XMLTYPE_TEXT, comment, &size);
  if (ret == VYR_XMLERR_SUCCESS) return 0;

  if (ret == VYR_XMLERR_NOTENOUGH_SIZE) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_COMMENT_RANGE_ERR);
  } else if (ret == VYR_XMLERR_NOTEXIST_PATH) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_COMMENT_PATH_ERR);
  } else {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_INTERNAL_ERR);
  }
  TRACE(TRACE_ERROR, "xmllib_get_value(%s) failed. (ret=%d)", path, ret);
  return 1;
}

int vip_conf_check(const char* rscname) {
  TRACE(TRACE_DETAIL, "vip_conf_check()  ENTRY...");
  const char* name = rscname ? rscname : "";
  int failure = 0;
  int verdict = 0;

  int ret = vip_load_chkconf();
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_load_chkconf() failed. (ret=%d)", ret);
    failure = ret;
  } else {
    ret = vip_comment_check(name);
    if (ret != 0) {
      // The comment is judged on the configuration alone; with a bad
      // comment no property is looked at.
      TRACE(TRACE_ERROR, "vip_comment_check() failed. (ret=%d)", ret);
      verdict = 1;
    } else {
      verdict = WalkProperties(name, &failure);
    }
    vip_unload_chkconf();
  }

  if (failure != 0) {
    CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_INTERNAL_ERR);
    TRACE(TRACE_DETAIL, "return(%d)", failure);
    return failure;
  }
  TRACE(TRACE_DETAIL, "return(%d)", verdict);
  return verdict;
}
