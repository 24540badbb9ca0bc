#include "vip/address/listing.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "common/command.h"
#include "common/shell.h"
#include "common/text.h"
#include "common/timed_run.h"
#include "nicCommon/nic_getinfo.h"
#include "tracersc/tracersc.h"
#include "vip/base/globals.h"
#include "vip/address/listing_parse.h"
#include "vip/base/status.h"

std::atomic<int> ifconfthend{0};

namespace {

constexpr const char* kListOption = " -a";

void TraceEntries(const ipaddrinfo* list, int num, bool ipv6) {
  for (int k = 0; k < num; ++k) {
    const ipaddrinfo& e = list[k];
    if (!ipv6) {
      TRACE(TRACE_INFO, "[%d] if:%-8s addr:%s", k, e.ifname, e.sipel.addr);
    } else {
      TRACE(TRACE_INFO, "[%d] if:%-8s masklen:%3d addr:%s", k, e.ifname, e.sipel.masklen,
            e.sipel.addr);
    }
    TRACE(TRACE_DETAIL, "mask:%s, mac:%s", e.sipel.mask, e.smac);
  }
}

// Turns the command's wait status into the listing's result: 0, 3 or 11.
int CheckStatus(int status, int wait_errno, const char* cmdline) {
  const vyr::WaitResult result = vyr::DecodeWaitStatus(status);
  if (!result.normal) {
    TRACE(TRACE_ERROR, "pclose(%s) error. (ret=%d,errno=%d)", cmdline, 0, wait_errno);
    return vyr::Fail(vyr::status::kAbnormalEnd, "Command failed. (%s(%s), errno=%d)", "pclose",
                     cmdline, wait_errno);
  }
  if (result.exit_code != 0) {
    TRACE(TRACE_ERROR, "%s : failed. (ret=%d)", cmdline, result.exit_code);
    return vyr::Fail(vyr::status::kToolFailed, "Command failed. (%s, ret=%d)", cmdline,
                     result.exit_code);
  }
  TRACE(TRACE_DETAIL, "%s : success.", cmdline);
  return 0;
}

// Runs the tool and parses its output; the list goes out only on success.
int ListFromTool(struct ipaddrinfo** ipaddrlist, int* num, char* cmdpath, bool ipv6,
                 vyr::WorkerControl* control) {
  // The path is not put in quotes: a configured path may carry arguments
  // ("/opt/bin/ifconfig --older"). Only a word of it that holds a character
  // the shell would act on is quoted; messages show the line as configured.
  const std::size_t pathlen = std::strlen(cmdpath);
  if (pathlen + std::strlen(kListOption) >= vyr::kLineMax) {
    TRACE(TRACE_ERROR, "popen() failed. (errno=%d)", ENAMETOOLONG);
    return vyr::Fail(vyr::status::kToolNotStarted);
  }
  std::snprintf(cmdpath + pathlen, vyr::kLineMax - pathlen, "%s", kListOption);
  const std::string shell_line = vyr::ShellWords(std::string_view(cmdpath, pathlen)) + kListOption;

  auto child = vyr::StartCommand(shell_line, vyr::ChildProcess::Output::kPipe, control);
  if (!child) {
    TRACE(TRACE_ERROR, "popen() failed. (errno=%d)", errno);
    return vyr::Fail(vyr::status::kToolNotStarted);
  }
  vyr::IfconfigListParser parser(ipv6);
  char line[vyr::kLineMax];
  int ret = 0;
  while (ret == 0 && child->ReadLine(line, sizeof line)) ret = parser.FeedLine(line);
  // Stopping early closes the output unread; the tool then ends on its own
  // (or by a broken pipe) and is reaped here. The partial list goes with
  // the parser.
  const int status = vyr::WaitCommand(*child, control);
  const int wait_errno = errno;
  if (ret != 0) return ret;
  ret = CheckStatus(status, wait_errno, cmdpath);
  if (ret != 0) return ret;
  parser.Release(ipaddrlist, num);
  TraceEntries(*ipaddrlist, *num, ipv6);
  return 0;
}

int ListFromKernel(struct ipaddrinfo** ipaddrlist, int* num) {
  const int ret = nic_get_all_info(ipaddrlist, num);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "nic_get_all_info() failed. (ret(in nicCommon)=%d)", ret);
    return vyr::Fail(vyr::status::kKernelList, "Get nic info failed.");
  }
  return 0;
}

int ListThroughWorker(struct ipaddrinfo** ipaddrlist, int* num, const char* cmdpath, int timeout) {
  IPADDR_INFO record{};
  std::snprintf(record.cmdpath, sizeof record.cmdpath, "%s", cmdpath ? cmdpath : "");
  record.ipv6 = ipv6flag != 0;
  const vyr::TimedResult run = vyr::RunTimed(ifconfthend, timeout,
                                             [&record](vyr::WorkerControl& control) {
                                               record.control = &control;
                                               vip_cmd_popen(&record);
                                             },
                                             {.started = nullptr, .timed_out = [func = __func__] {
                                                trace(TRACE_ERROR, __FILE__, __LINE__, func,
                                                      "thread timeout. command :ifconfig");
                                              }});
  if (run.outcome == vyr::TimedOutcome::kNotStarted) {
    TRACE(TRACE_ERROR, "pthread_create(vip_cmd_popen) failed. (errno=%d,ret=%d)", run.start_error,
          run.start_error);
    return vyr::Fail(vyr::status::kNoThread);
  }
  if (run.outcome == vyr::TimedOutcome::kTimedOut) {
    // The worker may have completed just as the limit passed.
    std::free(record.list);
    TRACE(TRACE_INFO, "return(vip_cmd_popen) = %d", vyr::status::kTimeout);
    return vyr::Fail(vyr::status::kTimeout);
  }
  *ipaddrlist = record.list;
  *num = record.ipaddr_num;
  return record.ret;
}

}  // namespace

int vip_ifconfig_mkth(struct ipaddrinfo** ipaddrlist, int* num, const char* cmdpath, int timeout) {
  TRACE(TRACE_DETAIL, "vip_ifconfig_mkth()  ENTRY...");
  const int ret = IsIfconfig == 0 ? ListFromKernel(ipaddrlist, num)
                                  : ListThroughWorker(ipaddrlist, num, cmdpath, timeout);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

void vip_cmd_popen(void* arg) {
  TRACE(TRACE_DETAIL, "vip_cmd_popen()  ENTRY...");
  auto* record = static_cast<PIPADDR_INFO>(arg);
  record->ret = vip_get_ipaddrlist(&record->list, &record->ipaddr_num, record->cmdpath,
                                   record->ipv6, record->control);
  if (record->ret != 0) TRACE(TRACE_ERROR, "vip_get_ipaddrlist() failed. (ret=%d)", record->ret);
  TRACE(TRACE_DETAIL, "return(%d)", record->ret);
}

int vip_get_ipaddrlist(struct ipaddrinfo** ipaddrlist, int* num, char* cmdpath, bool ipv6,
                       vyr::WorkerControl* control) {
  TRACE(TRACE_DETAIL, "vip_get_ipaddrlist()  ENTRY...");
  const int ret = ListFromTool(ipaddrlist, num, cmdpath, ipv6, control);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
