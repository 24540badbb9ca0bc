#include "vip/listing.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "common/command.h"
#include "common/shell.h"
#include "common/timed_worker.h"
#include "nicCommon/nic_getinfo.h"
#include "tracersc/tracersc.h"
#include "vip/globals.h"
#include "vip/listing_parse.h"
#include "vip/status.h"

std::atomic<int> ifconfthend{0};

namespace {

constexpr std::size_t kLineMax = 1024;
constexpr const char* kListOption = " -a";

void TraceEntries(const ipaddrinfo* list, int num) {
  for (int k = 0; k < num; ++k) {
    const ipaddrinfo& e = list[k];
    if (ipv6flag == 0) {
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
int ListFromTool(struct ipaddrinfo** ipaddrlist, int* num, char* cmdpath) {
  // The path is handed to the shell quoted, as one word; messages show the
  // command line unquoted, as it is kept in cmdpath.
  const std::size_t pathlen = std::strlen(cmdpath);
  if (pathlen + std::strlen(kListOption) >= kLineMax) {
    TRACE(TRACE_ERROR, "popen() failed. (errno=%d)", ENAMETOOLONG);
    return vyr::Fail(vyr::status::kToolNotStarted);
  }
  std::snprintf(cmdpath + pathlen, kLineMax - pathlen, "%s", kListOption);
  const std::string shell_line = vyr::ShellQuote(std::string_view(cmdpath, pathlen)) + kListOption;

  auto child = vyr::StartCommand(shell_line, vyr::ChildProcess::Output::kPipe);
  if (!child) {
    TRACE(TRACE_ERROR, "popen() failed. (errno=%d)", errno);
    return vyr::Fail(vyr::status::kToolNotStarted);
  }
  vyr::IfconfigListParser parser;
  char line[kLineMax];
  int ret = 0;
  while (ret == 0 && child->ReadLine(line, sizeof line)) ret = parser.FeedLine(line);
  // Stopping early closes the output unread; the tool then ends on its own
  // (or by a broken pipe) and is reaped here. The partial list goes with
  // the parser.
  const int status = vyr::WaitCommand(*child);
  const int wait_errno = errno;
  if (ret != 0) return ret;
  ret = CheckStatus(status, wait_errno, cmdpath);
  if (ret != 0) return ret;
  parser.Release(ipaddrlist, num);
  TraceEntries(*ipaddrlist, *num);
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
  // The record is declared before the worker, whose destructor joins it:
  // the worker can never outlive what it writes into.
  IPADDR_INFO record{};
  std::snprintf(record.cmdpath, sizeof record.cmdpath, "%s", cmdpath ? cmdpath : "");
  vyr::TimedWorker worker(ifconfthend);
  const int started = worker.Start([&record](vyr::WorkerControl&) { vip_cmd_popen(&record); });
  if (started != 0) {
    TRACE(TRACE_ERROR, "pthread_create(vip_cmd_popen) failed. (errno=%d,ret=%d)", started, started);
    return vyr::Fail(vyr::status::kNoThread);
  }
  // A limit of 0 or less times out at once, after the worker has started.
  const bool finished = timeout > 0 && worker.WaitFor(std::chrono::seconds(timeout));
  if (!finished) {
    TRACE(TRACE_ERROR, "thread timeout. command :ifconfig");
    worker.CancelAndJoin();
    // The worker may have completed just as the limit passed.
    std::free(record.list);
    TRACE(TRACE_INFO, "return(vip_cmd_popen) = %d", vyr::status::kTimeout);
    return vyr::Fail(vyr::status::kTimeout);
  }
  worker.Join();
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
  record->ret = vip_get_ipaddrlist(&record->list, &record->ipaddr_num, record->cmdpath);
  if (record->ret != 0) TRACE(TRACE_ERROR, "vip_get_ipaddrlist() failed. (ret=%d)", record->ret);
  TRACE(TRACE_DETAIL, "return(%d)", record->ret);
}

int vip_get_ipaddrlist(struct ipaddrinfo** ipaddrlist, int* num, char* cmdpath) {
  TRACE(TRACE_DETAIL, "vip_get_ipaddrlist()  ENTRY...");
  const int ret = ListFromTool(ipaddrlist, num, cmdpath);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
