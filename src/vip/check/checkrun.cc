#include "vip/check/checkrun.h"

#include <cstdio>

#include "chklog/chklog.h"
#include "tracersc/tracersc.h"
#include "vip/check/chkconf.h"
#include "vip/settings/config.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"

namespace {

using vyr::status::kCheckFinding;

constexpr const char* kType = "vip";

// One text value under a policy type into a 1024-byte buffer.
bool ReadPath(const char* type, const char* path, char* buffer) {
  int size = VIP_PATH_LEN;
  const int ret = vip_xml_get_path(type, path, buffer, &size);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_xml_get_path() failed. (ret=%d)", ret);
    return false;
  }
  return true;
}

int OpenCheckLog(const char* rscname) {
  const int ret = chk_log_init(kType, rscname, rdrctfile);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "chk_log_init() faild. (ret=%d)", ret);
    return kCheckFinding;
  }
  return 0;
}

int CheckOneResource(const char* rscname) {
  int chkret = OpenCheckLog(rscname);
  if (vip_conf_check(rscname) == 0) {
    chkret |= CHK_LOG(CHK_LEVEL_INFO, CHK_ID_SUCCESS);
  } else {
    chkret = kCheckFinding;
  }
  chkret |= chk_log_term(kType, rscname);
  return chkret;
}

int RejectArguments() {
  OpenCheckLog("");
  CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_ARG_ERR);
  chk_log_term(kType, "");
  return kCheckFinding;
}

}  // namespace

int vip_check_run(int argc, char** argv, const char* srcrev, const char* srcdate) {
  TRACE(TRACE_INFO, "vip rsc configuration check. %s %s, MAKE: %s %s", srcrev, srcdate, __DATE__,
        __TIME__);
  char chkinspath[VIP_PATH_LEN] = {};
  if (!ReadPath("cluster", "/root/cluster/check/rdrctpath", rdrctpath)) return kCheckFinding;
  if (!ReadPath("all", "/root/all/path", chkinspath)) return kCheckFinding;
  const int n = std::snprintf(rdrctfile, sizeof rdrctfile, "%s/%s", chkinspath, rdrctpath);
  if (n < 0 || static_cast<std::size_t>(n) >= sizeof rdrctfile) {
    // A cut path would send the verdict to some other file.
    TRACE(TRACE_ERROR, "redirect file path is too long. (%s/%s)", chkinspath, rdrctpath);
    rdrctfile[0] = '\0';
    return kCheckFinding;
  }
  TRACE(TRACE_DETAIL, "redirect file for configuration check : %s", rdrctfile);
  if (argc == 3) return CheckOneResource(argv[2]);
  return RejectArguments();
}
