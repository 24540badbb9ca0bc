#include "nicCommon/nic_ifconfig_probe.h"

#include <strings.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "common/command.h"
#include "common/shell.h"
#include "common/timed_worker.h"
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
constexpr std::size_t kLineMax = 1024;

constexpr std::string_view kSeparators = " \t\n";

std::vector<std::string_view> SplitTokens(std::string_view line) {
  std::vector<std::string_view> tokens;
  std::size_t pos = 0;
  while ((pos = line.find_first_not_of(kSeparators, pos)) != std::string_view::npos) {
    std::size_t end = line.find_first_of(kSeparators, pos);
    if (end == std::string_view::npos) end = line.size();
    tokens.push_back(line.substr(pos, end - pos));
    pos = end;
  }
  return tokens;
}

bool EqualsNoCase(std::string_view token, std::string_view word) {
  return token.size() == word.size() && ::strncasecmp(token.data(), word.data(), word.size()) == 0;
}

// 0 when ifconfig is on PATH, else the probe code (18 or 20).
int SearchIfconfig() {
  const vyr::WaitResult result = vyr::DecodeWaitStatus(vyr::RunCommand(SearchInvocation()));
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
  char line[kLineMax];
  while (child.ReadLine(line, sizeof line)) {
    const nic::IfconfigLayout layout = nic::ScanLayoutLine(line);
    if (layout == nic::IfconfigLayout::kOlder) {
      TRACE(TRACE_INFO, "parsing succeed,the format of %s is the same as RHEL 6 or previous.",
            kListCommand);
      return 0;
    }
    if (layout == nic::IfconfigLayout::kNewer) break;
  }
  TRACE(TRACE_INFO, "parsing failed,the format of %s is the same as RHEL 7.", kListCommand);
  return vyr::nic_probe::kNewerLayout;
}

// Closing early (the layout was found) may end the tool by a broken pipe;
// that is only traced, the code stands.
void CloseListing(vyr::ChildProcess& child) {
  const int status = vyr::WaitCommand(child);
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

int ProbeLayout() {
  const int searched = SearchIfconfig();
  if (searched != 0) return searched;
  auto child = vyr::StartCommand(ListInvocation(), vyr::ChildProcess::Output::kPipe);
  if (!child) {
    TRACE(TRACE_ERROR, "popen(%s, 'r') failed. (errno=%d)", kListCommand, errno);
    return vyr::nic_probe::kListNotStarted;
  }
  TRACE(TRACE_DETAIL, "popen(%s, 'r') succeeded.", kListCommand);
  const int code = ReadLayout(*child);
  CloseListing(*child);
  return code;
}

}  // namespace

namespace nic {

IfconfigLayout ScanLayoutLine(const char* line) {
  const std::string_view text(line);
  const std::vector<std::string_view> tokens = SplitTokens(text);
  if (tokens.empty()) return IfconfigLayout::kUndecided;
  const bool opens_block = !std::isspace(static_cast<unsigned char>(text.front()));
  if (opens_block && tokens.front().back() == ':') return IfconfigLayout::kNewer;
  for (std::size_t i = opens_block ? 1 : 0; i + 1 < tokens.size(); ++i) {
    if ((EqualsNoCase(tokens[i], "inet") || EqualsNoCase(tokens[i], "inet6")) &&
        vyr::StartsWithNoCase(tokens[i + 1], "addr:")) {
      return IfconfigLayout::kOlder;
    }
  }
  return IfconfigLayout::kUndecided;
}

}  // namespace nic

void nic_cmd_chk(void* arg) {
  TRACE(TRACE_DETAIL, "nic_cmd_chk()  ENTRY...");
  const int code = ProbeLayout();
  *static_cast<int*>(arg) = code;
  TRACE(TRACE_DETAIL, "return(%d)", code);
}

int nic_chk_isifconfig(int* IsIfconfig, int ifconfuse, int ifconfout) {
  TRACE(TRACE_DETAIL, "nic_chk_isifconfig()  ENTRY...");
  *IsIfconfig = 0;
  if (ifconfuse != 0) {
    TRACE(TRACE_DETAIL, "return(%d)", 0);
    return 0;
  }
  // Declared before the worker: the worker is joined (or cancelled and
  // joined) when `worker` goes out of scope, so chkret outlives it.
  int chkret = -1;
  vyr::TimedWorker worker(nic_actthend);
  const int started = worker.Start([&chkret](vyr::WorkerControl&) { nic_cmd_chk(&chkret); });
  if (started != 0) {
    TRACE(TRACE_ERROR, "pthread_create(nic_cmd_chk) failed. (errno=%d,ret=%d)", started, started);
    TRACE(TRACE_DETAIL, "return(%d)", vyr::nic_probe::kNoThread);
    return vyr::nic_probe::kNoThread;
  }
  // A limit of 0 or less times out at once, even if the worker is quick.
  const bool finished = ifconfout > 0 && worker.WaitFor(std::chrono::seconds(ifconfout));
  if (!finished) {
    TRACE(TRACE_ERROR, "thread timeout nic_cmd_chk.");
    worker.CancelAndJoin();
    TRACE(TRACE_INFO, "return(nic_cmd_chk) = %d", vyr::nic_probe::kTimeout);
    TRACE(TRACE_DETAIL, "return(%d)", vyr::nic_probe::kTimeout);
    return vyr::nic_probe::kTimeout;
  }
  worker.Join();
  if (chkret == 0) *IsIfconfig = 1;
  TRACE(TRACE_DETAIL, "return(%d)", 0);
  return 0;
}
