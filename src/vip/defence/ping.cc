#include "vip/defence/ping.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <system_error>

#include "tracersc/tracersc.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"
#include "vip/defence/raw_link.h"
#include "vyrxml.h"

namespace {

using namespace vyr::status;

using vyr::kEventForced;
using vyr::kEventInUse;

void RaiseEvent(int event, const char* addr) {
  tracemess(TRACE_EVENT, event, __FILE__, __LINE__, __func__, nullptr, addr);
}

// A probe record for `value`: the text before any "/" (a prefix length or
// mask may follow it), at most VIP_ADDR_LEN - 1 characters.
IP_INFO MakeRecord(const char* value, VIP_INFO* pinfo) {
  IP_INFO rec{};
  const char* slash = std::strchr(value, '/');
  const int len =
      slash != nullptr ? static_cast<int>(slash - value) : static_cast<int>(std::strlen(value));
  std::snprintf(rec.addr, sizeof rec.addr, "%.*s", len, value);
  rec.pinfo = pinfo;
  return rec;
}

// The names of the resource's servers as 256-byte entries, or false (with
// the trace lines of the narrowing) when they cannot be had.
bool ReadServers(const VIP_INFO* info, std::vector<char>* servers) {
  char path[VIP_PATH_LEN];
  std::snprintf(path, sizeof path, "/root/resource/vip@%s/server", info->rscname);
  int size = 0;
  int ret = xmllib_enum_value(path, nullptr, &size);
  if (ret != 0 && ret != VYR_XMLERR_NOTENOUGH_SIZE) {
    TRACE(TRACE_DETAIL, "xmllib_enum_value(%s) failed. (ret=%d)", path, ret);
    TRACE(TRACE_INFO, "ping ip=%s only.", info->addr);
    return false;
  }
  if (size / VYR_XML_ENUM_ENTRY <= 0) {
    TRACE(TRACE_WARNING, "ping ip=%s only.", info->addr);
    return false;
  }
  try {
    servers->assign(static_cast<std::size_t>(size), '\0');
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "malloc(%d) (*servers) failed. (errno=%d)", size, ENOMEM);
    TRACE(TRACE_WARNING, "ping ip=%s only.", info->addr);
    return false;
  }
  ret = xmllib_enum_value(path, servers->data(), &size);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "xmllib_enum_value(%s) failed. (ret=%d)", path, ret);
    TRACE(TRACE_WARNING, "ping ip=%s only.", info->addr);
    return false;
  }
  return true;
}

// Reads the address at `path` into a probe record; false after tracing a
// failed read.
bool ReadAddress(const char* path, VIP_INFO* info, IP_INFO* rec) {
  char value[VIP_ADDRBUF_LEN] = {};
  int size = VIP_ADDRBUF_LEN;
  const int ret = xmllib_get_value(path, VYR_XMLTYPE_TEXT, value, &size);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "xmllib_get_value(%s, %d) failed. (ret=%d)", path, VYR_XMLTYPE_TEXT, ret);
    return false;
  }
  value[VIP_ADDRBUF_LEN - 1] = '\0';
  *rec = MakeRecord(value, info);
  return true;
}

// The common address and every server's address, in enumeration order.
bool ReadAllAddresses(VIP_INFO* info, std::vector<IP_INFO>* pips) {
  std::vector<char> servers;
  if (!ReadServers(info, &servers)) return false;
  const int svnum = static_cast<int>(servers.size()) / VYR_XML_ENUM_ENTRY;
  const int ipnum = svnum + 1;
  TRACE(TRACE_INFO, "ipnum=%d", ipnum);
  try {
    pips->assign(static_cast<std::size_t>(ipnum), IP_INFO{});
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "malloc(%d) (*pips) failed. (errno=%d)",
          static_cast<int>(static_cast<std::size_t>(ipnum) * sizeof(IP_INFO)), ENOMEM);
    TRACE(TRACE_WARNING, "ping ip=%s only.", info->addr);
    return false;
  }
  for (int i = 0; i < ipnum; ++i) {
    char path[VIP_PATH_LEN];
    if (i == 0) {
      std::snprintf(path, sizeof path, "/root/resource/vip@%s/parameters/ip", info->rscname);
    } else {
      const char* name = servers.data() + static_cast<std::size_t>(i - 1) * VYR_XML_ENUM_ENTRY;
      std::snprintf(path, sizeof path, "/root/resource/vip@%s/server@%.*s/parameters/ip",
                    info->rscname, VYR_XML_ENUM_ENTRY, name);
    }
    if (!ReadAddress(path, info, &(*pips)[static_cast<std::size_t>(i)])) {
      TRACE(TRACE_WARNING, "ping ip=%s only.", info->addr);
      pips->clear();
      return false;
    }
  }
  return true;
}

// Sleeps a retry interval; a negative setting does not sleep.
void SleepSeconds(int seconds) {
  if (seconds > 0) std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

// Starts one probe thread per record. The records of those that could not
// be started keep ret 22.
void StartProbes(PIP_INFO pip, std::vector<VIP_THREAD_INFO>& pth) {
  for (std::size_t i = 0; i < pth.size(); ++i) {
    VIP_THREAD_INFO* th = &pth[i];
    IP_INFO* rec = &pip[i];
    try {
      th->pt = std::jthread([th, rec] { th->thret = vip_ping_retry(rec); });
      th->ret = 0;
    } catch (const std::system_error& e) {
      TRACE(TRACE_ERROR, "pthread_create(vip_ping_retry) failed. (ip=%s,errno=%d,ret=%d)",
            rec->addr, e.code().value(), e.code().value());
      th->ret = kNoThread;
    }
  }
}

// Waits for every started thread, slowest last; no time limit.
void JoinProbes(PIP_INFO pip, std::vector<VIP_THREAD_INFO>& pth) {
  for (std::size_t i = 0; i < pth.size(); ++i) {
    if (pth[i].ret != 0) continue;
    try {
      pth[i].pt.join();
    } catch (const std::system_error& e) {
      TRACE(TRACE_WARNING, "pthread_join(vip_ping_retry) failed. (ip=%s,errno=%d,ret=%d)",
            pip[i].addr, e.code().value(), e.code().value());
    }
  }
}

// The last non-zero probe result in address order; else 22 when a thread
// could not be started; else 0.
int Combine(const PIP_INFO pip, const std::vector<VIP_THREAD_INFO>& pth) {
  int result = 0;
  for (std::size_t i = 0; i < pth.size(); ++i) {
    if (pip[i].ret != 0) result = pip[i].ret;
    if (pth[i].ret != 0 && result == 0) result = kNoThread;
  }
  return result;
}

}  // namespace

int vip_ping_targets(VIP_INFO* pvipinfo, std::vector<IP_INFO>* pips) {
  pips->clear();
  if (actflag == 0 && pvipinfo->pingallip != 0 && ReadAllAddresses(pvipinfo, pips)) {
    return static_cast<int>(pips->size());
  }
  try {
    pips->assign(1, MakeRecord(pvipinfo->addr, pvipinfo));
  } catch (const std::bad_alloc&) {
    pips->clear();
  }
  return static_cast<int>(pips->size());
}

int vip_ping(VIP_INFO* pvipinfo) {
  TRACE(TRACE_DETAIL, "vip_ping()  ENTRY...");
  std::vector<IP_INFO> pips;
  int ret;
  if (vip_ping_targets(pvipinfo, &pips) > 0) {
    ret = vip_ping_mkth(pips.data(), static_cast<int>(pips.size()));
  } else {
    IP_INFO own = MakeRecord(pvipinfo->addr, pvipinfo);
    ret = vip_ping_mkth(&own, 1);
  }
  if (ret != 0) TRACE(TRACE_ERROR, "vip_ping_mkth() failed. (ret=%d)", ret);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_ping_mkth(PIP_INFO pip, int ipnum) {
  TRACE(TRACE_DETAIL, "vip_ping_mkth()  ENTRY...");
  if (ipnum <= 0) {
    TRACE(TRACE_DETAIL, "return(%d)", 0);
    return 0;
  }
  int result;
  {
    std::vector<VIP_THREAD_INFO> pth;
    try {
      pth.resize(static_cast<std::size_t>(ipnum));
    } catch (const std::bad_alloc&) {
      TRACE(TRACE_ERROR, "malloc(%d) (pth) failed. (errno:%d)",
            static_cast<int>(static_cast<std::size_t>(ipnum) * sizeof(VIP_THREAD_INFO)), ENOMEM);
      TRACE(TRACE_DETAIL, "return(%d)", kNoMemory);
      return vyr::Fail(kNoMemory);
    }
    StartProbes(pip, pth);
    JoinProbes(pip, pth);
    result = Combine(pip, pth);
  }
  const VIP_INFO* info = pip[0].pinfo;
  if (result != 0 && info != nullptr && info->pingforce != 0 && actflag == 0) {
    TRACE(TRACE_WARNING, "force act vip(%s)!", info->addr);
    RaiseEvent(kEventForced, info->addr);
    result = 0;
  }
  if (result == kInUse) {
    vyr::Fail(result, "IP address was already used.");
  } else if (result != 0) {
    vyr::Fail(result);
  }
  TRACE(TRACE_DETAIL, "return(%d)", result);
  return result;
}

void* vip_ping_retry(void* arg) {
  auto* pip = static_cast<PIP_INFO>(arg);
  const VIP_INFO* info = pip->pinfo;
  TRACE(TRACE_DETAIL, "vip_ping_retry()  ENTRY...");
  int ret = vip_chk_ip_response(pip);
  if (ret == 0) {
    TRACE(TRACE_INFO, "vip_chk_ip_response(%s) OK.", pip->addr);
    pip->ret = 0;
    TRACE(TRACE_DETAIL, "return(%d)", 0);
    return nullptr;
  }
  TRACE(TRACE_ERROR, "vip_chk_ip_response(%s) failed. (ret=%d)", pip->addr, ret);
  // Every failure is retried alike: an answer, a missing command, a failed run.
  for (int count = 1; count <= info->pingretry; ++count) {
    SleepSeconds(info->pinginterval);
    TRACE(TRACE_INFO, "ping(%s) retry start, count=%d.", pip->addr, count);
    ret = vip_chk_ip_response(pip);
    if (ret == 0) {
      TRACE(TRACE_INFO, "vip_chk_ip_response(%s) succeeded.", pip->addr);
      pip->ret = 0;
      TRACE(TRACE_DETAIL, "return(%d)", 0);
      return nullptr;
    }
  }
  if (ret == kInUse && actflag == 0) RaiseEvent(kEventInUse, pip->addr);
  if (info->pingretry != 0) TRACE(TRACE_ERROR, "ping(%s) retry failed.", pip->addr);
  pip->ret = ret;
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return nullptr;
}
