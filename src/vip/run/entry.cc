#include "vip/run/entry.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "common/text.h"
#include "nicCommon/nic_ifconfig_probe.h"
#include "tracersc/tracersc.h"
#include "vip/address/addrtext.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"
#include "vip/check/checkrun.h"
#include "vip/check/chkconf.h"
#include "vip/run/cmdline.h"
#include "vip/run/lanprobe.h"
#include "vip/run/terminal.h"
#include "vip/sequence/activate.h"
#include "vip/sequence/deactivate.h"
#include "vip/settings/bindings.h"
#include "vip/settings/config.h"

namespace {

constexpr const char* srcrev = "$Revision: 4 $";
constexpr const char* srcdate = "$Date: 10/12/22 11:12 $";

using namespace vyr::status;

struct RecordFree {
  void operator()(VIP_INFO* p) const { std::free(p); }
};
using Record = std::unique_ptr<VIP_INFO, RecordFree>;

// What the shutdown path needs to know about the run.
struct Run {
  Record record;
  bool check_mode = false;
  int chkret = 0;
  int ret = 0;
  // For the terminal line: why the run stopped early, and the trace log's
  // file while it was open.
  VIP_EARLY early = VIP_EARLY::kNone;
  std::string trace_log;
};

// vip_init's result, remembered for the terminal line.
int Init(Run& run) {
  const int ret = vip_init();
  if (ret == kNotRoot) run.early = VIP_EARLY::kNotRoot;
  if (ret == 0 && tracefile() != nullptr) run.trace_log = tracefile();
  return ret;
}

void ClearGlobals() {
  std::memset(inspath, 0, sizeof inspath);
  vip_clear_shmbuf();
  std::memset(rdrctpath, 0, sizeof rdrctpath);
  std::memset(rdrctfile, 0, sizeof rdrctfile);
}

void TraceBanner() {
  TRACE(TRACE_INFO, "vip rsc starting");
  TRACE(TRACE_INFO, "%s %s", srcrev, srcdate);
  TRACE(TRACE_INFO, "MAKE: %s %s", __DATE__, __TIME__);
}

// Allocates the settings record, cleared. 0 or 10.
int AllocateRecord(Run& run) {
  // calloc rather than new: the record is a plain C record and an
  // allocation failure must become a status, not an exception.
  VIP_INFO* p = static_cast<VIP_INFO*>(std::calloc(1, sizeof(VIP_INFO)));
  if (p == nullptr) {
    const int err = errno;
    TRACE(TRACE_ERROR, "malloc(%d) failed. (errno=%d)", static_cast<int>(sizeof(VIP_INFO)), err);
    return vyr::Fail(kNoMemory);
  }
  TRACE(TRACE_DETAIL, "malloc(%d) succeeded.", static_cast<int>(sizeof(VIP_INFO)));
  run.record.reset(p);
  return 0;
}

// Manual mode: the address (and prefix) given with -a.
int TakeManualAddress(VIP_INFO* info, const char* addrbuf) {
  if (addrbuf[0] == '\0') return kInvalidOption;
  vip_ipck(addrbuf);
  const int ret = vip_div_ipmask(addrbuf, info->addr, info->mask, &info->masklen);
  if (ret != 0) TRACE(TRACE_ERROR, "vip_div_ipmask failed. (ret=%d)", ret);
  return ret;
}

// Cluster modes: the resource and its group must both be named.
int TakeResource(const VIP_INFO* info) {
  if (info->rscname[0] == '\0' || info->grpname[0] == '\0') {
    TRACE(TRACE_ERROR, "Invalid option.");
    return vyr::Fail(kInvalidOption, "Option was invalid.");
  }
  if (actflag == 1) {
    TRACE(TRACE_INFO, "deactive rsc:%s, grp:%s", info->rscname, info->grpname);
  } else {
    TRACE(TRACE_INFO, "active   rsc:%s, grp:%s", info->rscname, info->grpname);
  }
  tracetell(info->rscname);
  return 0;
}

int LoadDynamicConfig() {
  TRACE(TRACE_INFO, "Run with dynamic update mode.");
  const int ret = vip_load_chkconf();
  if (ret != 0) TRACE(TRACE_ERROR, "vip_load_chkconf() failed. (ret=%d)", ret);
  return ret;
}

int FillFromConfig(VIP_INFO* info) {
  const int ret = vip_xml_get_config(info);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_xml_get_config(%p) failed. (ret=%d)", static_cast<void*>(info), ret);
    return ret;
  }
  TRACE(TRACE_DETAIL, "vip_xml_get_config(%p) succeeded.", static_cast<void*>(info));
  return 0;
}

void ProbeInterfaceTool(const VIP_INFO* info) {
  if (info->ipaddrnetlink != 0) {
    // The tool's older layout does not show an address without a label.
    IsIfconfig = 0;
    TRACE(TRACE_INFO, "ipaddr/netlink: the kernel lists, adds and removes.");
    return;
  }
  const int ret = nic_chk_isifconfig(&IsIfconfig, info->ifconfuse, info->ifconftout);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "nic_chk_isifconfig() failed. (ret=%d)", ret);
  } else {
    TRACE(TRACE_DETAIL, "nic_chk_isifconfig() succeeded.");
  }
}

int Dispatch(VIP_INFO* info) {
  switch (actflag) {
    case 0:
      return vip_start_act(info);
    case 1:
      return vip_start_deact(info);
    default:
      return vyr::Fail(kInternal);
  }
}

// Everything after the record exists: command line, configuration, probe
// and the sequence. Returns the run's status.
int RunWithRecord(int argc, char** argv, VIP_INFO* info) {
  if (argc <= 3) {
    TRACE(TRACE_ERROR, "Invalid option. (argc=%d)", argc);
    return vyr::Fail(kInvalidOption, "Option was invalid.");
  }
  TRACE(TRACE_DETAIL, "argc=%d", argc);
  int ret = vip_parse_mode(argv[1]);
  if (ret != 0) return ret;
  char addrbuf[VIP_ADDRBUF_LEN] = {};
  ret = vip_parse_options(argc, argv, info, addrbuf, sizeof addrbuf);
  if (ret != 0) return ret;
  ret = nomuseflag ? TakeManualAddress(info, addrbuf) : TakeResource(info);
  if (ret != 0) return ret;
  if (dynamicflag) {
    ret = LoadDynamicConfig();
    if (ret != 0) return ret;
  }
  ret = FillFromConfig(info);
  if (ret != 0) return ret;
  ProbeInterfaceTool(info);
  return Dispatch(info);
}

void ResourceMode(Run& run, int argc, char** argv) {
  run.ret = Init(run);
  if (run.ret != 0) return;
  TraceBanner();
  // A binding that cannot be attached is traced by its wrapper; the run
  // goes on without it.
  vip_shmrm_attach();
  vip_shmnm_attach();
  vip_sem_attach();
  run.ret = AllocateRecord(run);
  if (run.ret != 0) return;
  run.ret = RunWithRecord(argc, argv, run.record.get());
}

// --lanprobe: root only; the configuration, when it loads, gives the trace
// log its level, and without one the probe runs untraced.
void LanprobeMode(Run& run, int argc, char** argv) {
  run.ret = Init(run);
  if (run.ret == kNotRoot) return;
  vip_clear_shmbuf();
  run.ret = vip_lanprobe_main(argc, argv);
}

void CheckMode(Run& run, int argc, char** argv) {
  run.check_mode = true;
  if (Init(run) != 0) {
    run.chkret = kCheckFinding;
    return;
  }
  run.chkret = vip_check_run(argc, argv, srcrev, srcdate);
}

// Every path ends here, in this order, whatever was set up.
int Shutdown(Run& run) {
  if (run.record) vip_shmrm_setdescript(run.record->rscname, run.record->grpname);
  run.record.reset();
  if (run.check_mode) run.ret = run.chkret;
  TRACE(TRACE_INFO, "return(ret=%d)", run.ret);
  vip_unload_chkconf();
  vip_sem_detach();
  vip_shmnm_detach();
  vip_shmrm_detach();
  vip_xml_term();
  vip_log_term();
  return run.ret;
}

void TellTerminal(const Run& run, const char* argv0, int status) {
  if (status == 0) return;  // a successful run has nothing to say
  VIP_OUTCOME outcome;
  const char* slash = argv0 != nullptr ? std::strrchr(argv0, '/') : nullptr;
  outcome.program = slash != nullptr ? slash + 1 : (argv0 != nullptr ? argv0 : "vyrvip");
  outcome.status = status;
  outcome.early = run.early;
  outcome.check_mode = run.check_mode;
  char description[VIP_SHMBUF_LEN];
  vip_get_shmbuf(description);
  outcome.description = description;
  outcome.trace_log = run.trace_log;
  outcome.check_log = rdrctfile;
  vip_tell_terminal(outcome);
}

}  // namespace

int vip_init(void) {
  TRACE(TRACE_DETAIL, "vip_init()  ENTRY...");
  const uid_t uid = ::geteuid();
  if (uid != 0) {
    // The trace log is not open yet, so this line is normally dropped.
    TRACE(TRACE_ERROR, "Not root. (uid=%d)", static_cast<int>(uid));
    return vyr::Fail(kNotRoot, "User was not superuser.");
  }
  TRACE(TRACE_DETAIL, "user: root");
  const int ret = vip_xml_init();
  if (ret != 0) return ret;
  return vip_log_init();
}

void vip_usage(void) {
  std::fputs("usage: vyrvip --add -a ipaddress[/subnet] [-i interface]\n", stdout);
  std::fputs("              --del -a ipaddress\n", stdout);
}

int vip_main(int argc, char** argv) {
  ClearGlobals();
  Run run;
  if (argc <= 1) {
    // Nothing is initialised yet: the line goes nowhere and no description
    // is stored.
    TRACE(TRACE_ERROR, "Invalid option. (argc=%d)", argc);
    run.ret = vyr::Fail(kInvalidOption, "Option was invalid.");
    run.early = VIP_EARLY::kNoMode;
  } else if (vyr::EqualsNoCase(argv[1], "--test")) {
    CheckMode(run, argc, argv);
  } else if (vyr::EqualsNoCase(argv[1], "--lanprobe")) {
    LanprobeMode(run, argc, argv);
  } else {
    ResourceMode(run, argc, argv);
  }
  const int status = Shutdown(run);
  TellTerminal(run, argv[0], status);
  return status;
}
