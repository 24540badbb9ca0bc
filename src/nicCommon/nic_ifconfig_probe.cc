#include "nicCommon/nic_ifconfig_probe.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/command.h"
#include "common/text.h"
#include "common/timed_run.h"
#include "tracersc/tracersc.h"

std::atomic<int> nic_actthend{0};

namespace {

// The two command lines of the probe, as traced. They are fixed, so they
// run with no shell in front (see SearchInvocation and ListInvocation):
// each shell would be one more process image in every run.
constexpr const char* kSearchCommand = "which ifconfig > /dev/null 2>&1";
constexpr const char* kListCommand = "ifconfig -a";

vyr::Invocation SearchInvocation() {
  return vyr::Invocation::Program({"which", "ifconfig"}).Quiet();
}
vyr::Invocation ListInvocation() { return vyr::Invocation::Program({"ifconfig", "-a"}); }
// 0 when ifconfig is on PATH, else the probe code (18 or 20).
int SearchIfconfig(vyr::WorkerControl* control) {
  const vyr::WaitResult result =
      vyr::DecodeWaitStatus(vyr::RunCommand(SearchInvocation(), control));
  if (!result.normal) {
    TRACE(TRACE_ERROR, "system(%s) failed. (ret=%d)", kSearchCommand, 0);
    return vyr::nic_probe::kSearchAbnormal;
  }
  if (result.exit_code != 0) {
    TRACE(TRACE_ERROR, "%s failed,ifconfig does not exist.(ret=%d)", kSearchCommand,
          result.exit_code);
    return vyr::nic_probe::kNoIfconfig;
  }
  TRACE(TRACE_INFO, "%s succeeded.", kSearchCommand);
  return 0;
}

// Reads the listing until its layout shows: 0 older, 22 newer or none found.
int ReadLayout(vyr::ChildProcess& child) {
  char line[vyr::kLineMax];
  while (child.ReadLine(line, sizeof line)) {
    const vyr::IfconfigLayout layout = vyr::ScanLayoutLine(line);
    if (layout == vyr::IfconfigLayout::kOlder) {
      TRACE(TRACE_INFO, "parsing succeed,the format of %s is the same as RHEL 6 or previous.",
            kListCommand);
      return 0;
    }
    if (layout == vyr::IfconfigLayout::kNewer) break;
  }
  TRACE(TRACE_INFO, "parsing failed,the format of %s is the same as RHEL 7.", kListCommand);
  return vyr::nic_probe::kNewerLayout;
}

// Closing early (the layout was found) may end the tool by a broken pipe;
// that is only traced, the code stands.
void CloseListing(vyr::ChildProcess& child, vyr::WorkerControl* control) {
  const int status = vyr::WaitCommand(child, control);
  const int saved_errno = errno;
  const vyr::WaitResult result = vyr::DecodeWaitStatus(status);
  if (!result.normal) {
    TRACE(TRACE_ERROR, "pclose(%s) error. (ret=%d,errno=%d)", kListCommand, 0, saved_errno);
  } else if (result.exit_code != 0) {
    TRACE(TRACE_ERROR, "%s : failed. (ret=%d)", kListCommand, result.exit_code);
  } else {
    TRACE(TRACE_DETAIL, "%s : success.", kListCommand);
  }
}

int ProbeLayout(vyr::WorkerControl* control) {
  const int searched = SearchIfconfig(control);
  if (searched != 0) return searched;
  auto child = vyr::StartCommand(ListInvocation(), vyr::ChildProcess::Output::kPipe, control);
  if (!child) {
    TRACE(TRACE_ERROR, "popen(%s, 'r') failed. (errno=%d)", kListCommand, errno);
    return vyr::nic_probe::kListNotStarted;
  }
  TRACE(TRACE_DETAIL, "popen(%s, 'r') succeeded.", kListCommand);
  const int code = ReadLayout(*child);
  CloseListing(*child, control);
  return code;
}

}  // namespace

namespace vyr {

IfconfigLayout ScanLayoutLine(const char* line) {
  char copy[kLineMax];
  std::snprintf(copy, sizeof copy, "%s", line);
  const bool opens_block = !std::isspace(static_cast<unsigned char>(copy[0]));
  char* tokens[kMaxTokens];
  const int n = CutTokens(copy, tokens, kMaxTokens);
  if (n == 0) return IfconfigLayout::kUndecided;
  if (opens_block && tokens[0][std::strlen(tokens[0]) - 1] == ':') return IfconfigLayout::kNewer;
  for (int i = opens_block ? 1 : 0; i + 1 < n; ++i) {
    if ((EqualsNoCase(tokens[i], "inet") || EqualsNoCase(tokens[i], "inet6")) &&
        StartsWithNoCase(tokens[i + 1], "addr:")) {
      return IfconfigLayout::kOlder;
    }
  }
  return IfconfigLayout::kUndecided;
}

}  // namespace vyr

void nic_cmd_chk(void* arg) {
  TRACE(TRACE_DETAIL, "nic_cmd_chk()  ENTRY...");
  auto* record = static_cast<NIC_CHK_INFO*>(arg);
  record->ret = ProbeLayout(record->control);
  TRACE(TRACE_DETAIL, "return(%d)", record->ret);
}

int nic_chk_isifconfig(int* IsIfconfig, int ifconfuse, int ifconfout) {
  TRACE(TRACE_DETAIL, "nic_chk_isifconfig()  ENTRY...");
  *IsIfconfig = 0;
  if (ifconfuse != 0) {
    TRACE(TRACE_DETAIL, "return(%d)", 0);
    return 0;
  }
  NIC_CHK_INFO record{-1, nullptr};
  const vyr::TimedResult run =
      vyr::RunTimed(nic_actthend, ifconfout,
                    [&record](vyr::WorkerControl& control) {
                      record.control = &control;
                      nic_cmd_chk(&record);
                    },
                    {.started = nullptr, .timed_out = [func = __func__] {
                       trace(TRACE_ERROR, __FILE__, __LINE__, func, "thread timeout nic_cmd_chk.");
                     }});
  if (run.outcome == vyr::TimedOutcome::kNotStarted) {
    TRACE(TRACE_ERROR, "pthread_create(nic_cmd_chk) failed. (errno=%d,ret=%d)", run.start_error,
          run.start_error);
    TRACE(TRACE_DETAIL, "return(%d)", vyr::nic_probe::kNoThread);
    return vyr::nic_probe::kNoThread;
  }
  if (run.outcome == vyr::TimedOutcome::kTimedOut) {
    TRACE(TRACE_INFO, "return(nic_cmd_chk) = %d", vyr::nic_probe::kTimeout);
    TRACE(TRACE_DETAIL, "return(%d)", vyr::nic_probe::kTimeout);
    return vyr::nic_probe::kTimeout;
  }
  if (record.ret == 0) *IsIfconfig = 1;
  TRACE(TRACE_DETAIL, "return(%d)", 0);
  return 0;
}
