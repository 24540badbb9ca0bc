#include "vip/defence/probe.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "common/command.h"
#include "common/shell.h"
#include "common/text.h"
#include "tracersc/tracersc.h"
#include "vip/address/addrtext.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"

namespace {

using namespace vyr::status;

// The neighbour lookup's own results (only traced, never a run status).
constexpr int kLookupFailed = 3;
constexpr int kNoMac = 26;
constexpr int kMacLen = vyr::kMacTextLen;
constexpr int kLineLen = vyr::kLookupLineLen;

// Reads the lookup's output until the first MAC token. Stops reading there,
// as the rest of the output cannot change the answer.
bool ReadMac(vyr::ChildProcess& child, char* macaddr) {
  char line[kLineLen];
  while (child.ReadLine(line, sizeof line)) {
    vip_chop(line);
    if (vyr::FindMacToken(line, macaddr)) return true;
  }
  return false;
}

// Traces the responder of an answered probe: its MAC address for IPv4, the
// lookup's failure (or 1 for IPv6, where no lookup is made) otherwise.
void TraceResponder(PIP_INFO pip) {
  char macaddr[kMacLen] = {};
  int ret = 1;
  if (ipv6flag == 0) ret = vip_get_macaddr_v4(pip->pinfo->arpcmd, pip->addr, macaddr);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "%s is already exist. (ret=%d)", pip->addr, ret);
  } else {
    TRACE(TRACE_ERROR, "%s is already exist.(macaddr : %s)", pip->addr, macaddr);
  }
}

}  // namespace

bool vyr::FindMacToken(char* line, char* macaddr) {
  char* tokens[kMaxTokens];
  const int n = CutTokens(line, tokens, kMaxTokens);
  for (int i = 0; i < n; ++i) {
    const char* tok = tokens[i];
    unsigned int f[6];
    if (std::sscanf(tok, "%x:%x:%x:%x:%x:%x", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]) != 6) {
      continue;
    }
    if (std::strlen(tok) >= static_cast<std::size_t>(kMacLen)) continue;
    std::snprintf(macaddr, kMacLen, "%s", tok);
    return true;
  }
  return false;
}

int vip_chk_ip_response(PIP_INFO pip) {
  TRACE(TRACE_DETAIL, "vip_chk_ip_response()  ENTRY...");
  char path[VIP_PATH_LEN] = {};
  const int plen = std::snprintf(path, sizeof path, "%s/%s", inspath, pip->pinfo->pingcmd);
  struct stat st;
  // A path that does not fit is not the configured command: never run a cut one.
  if (plen < 0 || plen >= static_cast<int>(sizeof path) || stat(path, &st) != 0) {
    TRACE(TRACE_ERROR, "%s: Command not found.", path);
    TRACE(TRACE_DETAIL, "return(%d)", kNoPingCommand);
    return kNoPingCommand;
  }
  const std::string cmdline = vyr::ShellDoubleQuote(path) + " -c " +
                              std::to_string(pip->pinfo->pingtout) + " " +
                              vyr::ShellWords(pip->addr) + " > /dev/null 2>&1";
  TRACE(TRACE_INFO, "system(%s)...", cmdline.c_str());
  const vyr::WaitResult st_ping = vyr::DecodeWaitStatus(vyr::RunCommand(cmdline, nullptr));

  int ret;
  if (!st_ping.normal) {
    TRACE(TRACE_ERROR, "ping to %s failed (before system()).", pip->addr);
    ret = kAbnormalEnd;
  } else if (st_ping.exit_code == 1) {
    ret = kSuccess;
  } else if (st_ping.exit_code == 0) {
    TraceResponder(pip);
    ret = kInUse;
  } else {
    TRACE(TRACE_ERROR, "ping to %s failed (after system()).", pip->addr);
    ret = kPingUnexpected;
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_get_macaddr_v4(const char* cmdpath, const char* ipaddr, char* macaddr) {
  TRACE(TRACE_DETAIL, "vip_get_macaddr_v4()  ENTRY...");
  // Any text is looked up, an IPv6 address of another server too: the
  // command's own exit status reports what it cannot look up.
  const std::string cmdline = vyr::ShellDoubleQuote(cmdpath) + " -n " + vyr::ShellWords(ipaddr);
  TRACE(TRACE_INFO, "popen(%s)...", cmdline.c_str());
  auto child = vyr::StartCommand(cmdline, vyr::ChildProcess::Output::kPipe, nullptr);
  if (!child) {
    TRACE(TRACE_ERROR, "popen() failed. (errno=%d)", errno);
    TRACE(TRACE_DETAIL, "return(%d)", kToolNotStarted);
    return vyr::Fail(kToolNotStarted);
  }
  char found[kMacLen] = {};
  const bool have_mac = ReadMac(*child, found);
  const int status = vyr::WaitCommand(*child, nullptr);
  const int wait_errno = errno;
  const vyr::WaitResult st = vyr::DecodeWaitStatus(status);

  int ret;
  if (!st.normal) {
    TRACE(TRACE_ERROR, "pclose(%s) error. (ret=%d,errno=%d)", cmdline.c_str(), 0, wait_errno);
    ret = vyr::Fail(kAbnormalEnd, "Command failed. (%s(%s), errno=%d)", "pclose", cmdline.c_str(),
                    wait_errno);
  } else if (st.exit_code != 0) {
    TRACE(TRACE_ERROR, "%s : failed. (ret=%d)", cmdline.c_str(), st.exit_code);
    ret = vyr::Fail(kLookupFailed, "Command failed. (%s, ret=%d)", cmdline.c_str(), st.exit_code);
  } else {
    TRACE(TRACE_DETAIL, "%s : success.", cmdline.c_str());
    ret = have_mac ? 0 : kNoMac;
    if (have_mac) std::memcpy(macaddr, found, sizeof found);
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
