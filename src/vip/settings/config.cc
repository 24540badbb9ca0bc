// Configuration loading: the configuration library's life cycle, the trace
// log's settings, single-path lookups and the settings record.
#include "vip/settings/config.h"

#include <cstdio>
#include <cstring>

#include "tracersc/tracersc.h"
#include "value/hostname.h"
#include "vip/address/addrtext.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"
#include "vip/settings/bindings.h"
#include "vyrxml.h"

int xmliniflag = 0;
int xmlconflag = 0;
int loginiflag = 0;

namespace {

using namespace vyr::status;

constexpr int kDefaultLogLevel = 4;
constexpr int kDefaultLogSize = 1000000;
constexpr int kIntSize = static_cast<int>(sizeof(int));

constexpr const char* kPingPath = "/root/resource/vip/parameters/ping/path";
constexpr const char* kArpPath = "/root/resource/vip/parameters/arp/path";
constexpr const char* kIfconfigPath = "/root/resource/vip/parameters/ifconfig/path";
constexpr const char* kInstallPath = "/root/all/path";

// One integer setting of the resource: the key below
// "/root/resource/vip@<rscname>/parameters/", its field and its default.
struct IntSetting {
  const char* key;
  int VIP_INFO::*field;
  int fallback;
};

constexpr IntSetting kActivationPing[] = {
    {"ifconfig/use", &VIP_INFO::ifconfuse, 0},
    {"ping/timeout", &VIP_INFO::pingtout, 1},
    {"ping/retry", &VIP_INFO::pingretry, 0},
    {"ping/interval", &VIP_INFO::pinginterval, 1},
    {"ping/force", &VIP_INFO::pingforce, 0},
    {"ping/allip", &VIP_INFO::pingallip, 0},
    {"ping/execute_in_npsimu_on_act", &VIP_INFO::pingnpsimu, 0},
};
constexpr IntSetting kDeactivationPing[] = {
    {"ping/execute_in_npsimu_on_deact", &VIP_INFO::pingnpsimu, 0},
};
constexpr IntSetting kArp[] = {
    {"arp/retry", &VIP_INFO::arpnum, 1},
    {"arp/opcode", &VIP_INFO::arpopcode, 1},
};
constexpr IntSetting kDefence[] = {
    {"na/retry", &VIP_INFO::nanum, 0},
    {"dad/timeout", &VIP_INFO::dadtout, 0},
    {"arpprobe/timeout", &VIP_INFO::arpprobetout, 0},
    {"dad/probe", &VIP_INFO::dadprobe, 0},
};
constexpr IntSetting kAddressChange[] = {
    {"ipaddr/netlink", &VIP_INFO::ipaddrnetlink, 0},
};
constexpr IntSetting kAddressFlags[] = {
    {"ipaddr/nodad", &VIP_INFO::ipaddrnodad, 0},
    {"ipaddr/noprefixroute", &VIP_INFO::ipaddrnoprefixroute, 0},
    {"ipaddr/preferred_lft", &VIP_INFO::ipaddrpreflft, -1},
    {"ipaddr/nolabel", &VIP_INFO::ipaddrnolabel, 0},
};
constexpr IntSetting kAnnounce[] = {
    {"arp/interval", &VIP_INFO::arpinterval, 0},
    {"arp/background", &VIP_INFO::arpbackground, 0},
};
constexpr IntSetting kLock[] = {
    {"lock/short", &VIP_INFO::lockshort, 0},
};
constexpr IntSetting kIfconfig[] = {
    {"ifconfig/timeout", &VIP_INFO::ifconftout, 60},
};
constexpr IntSetting kChecks[] = {
    {"check/ifconfig/execute", &VIP_INFO::checkifexec, 1},
    {"check/ifconfig/retry", &VIP_INFO::checkifretry, 3},
    {"check/ifconfig/interval", &VIP_INFO::checkifinterval, 1},
    {"check/ifconfig/error", &VIP_INFO::checkiferror, 0},
    {"check/ping/execute", &VIP_INFO::checkpiexec, 1},
    {"check/ping/retry", &VIP_INFO::checkpiretry, 3},
    {"check/ping/interval", &VIP_INFO::checkpiinterval, 1},
    {"check/ping/error", &VIP_INFO::checkpierror, 0},
    {"check/arp/timeout", &VIP_INFO::checkarptout, 0},
    {"check/arp/background", &VIP_INFO::checkarpbg, 0},
};
constexpr IntSetting kLink[] = {
    {"defmethod", &VIP_INFO::miiw_method, 0},
    {"monmii", &VIP_INFO::isMiiw, 0},
};

// An integer of the log settings; the default when it is missing.
int LogSetting(const char* path, int fallback) {
  int value = 0;
  int size = kIntSize;
  return xmllib_get_value(path, VYR_XMLTYPE_INT, &value, &size) == 0 ? value : fallback;
}

// A text common to all resources into `field` (1024 bytes).
void ReadCommonText(const char* path, char* field, const char* fallback) {
  int size = VIP_PATH_LEN;
  if (xmllib_get_value(path, VYR_XMLTYPE_TEXT, field, &size) != 0) {
    TRACE(TRACE_WARNING, "xmllib_get_value(%s) failed.", path);
    std::snprintf(field, VIP_PATH_LEN, "%s", fallback);
  }
}

template <std::size_t N>
void ReadInts(VIP_INFO* info, const IntSetting (&settings)[N]) {
  char path[VIP_PATH_LEN];
  for (const IntSetting& s : settings) {
    std::snprintf(path, sizeof path, "/root/resource/vip@%s/parameters/%s", info->rscname, s.key);
    int value = 0;
    int size = kIntSize;
    int ret = xmllib_get_value(path, VYR_XMLTYPE_INT, &value, &size);
    if (ret != 0) {
      TRACE(TRACE_WARNING, "xmllib_get_value(%s) failed. (ret=%d)", path, ret);
      value = s.fallback;
    }
    info->*s.field = value;
  }
}

int ReleasePolicy(const char* type) {
  int ret = xmllib_unload_policy(type);
  if (ret != 0) {
    TRACE(TRACE_WARNING, "xmllib_unload_policy(%s) failed. (ret=%d)", type, ret);
  } else {
    TRACE(TRACE_DETAIL, "xmllib_unload_policy(%s) succeeded.", type);
  }
  return ret;
}

// A text of the resource into `field` of `size` bytes; "" when missing. A
// longer value is cut to the field, so that it still fails the checks of
// its length.
void ReadText(VIP_INFO* info, const char* key, char* field, std::size_t size) {
  char path[VIP_PATH_LEN];
  std::snprintf(path, sizeof path, "/root/resource/vip@%s/parameters/%s", info->rscname, key);
  char value[VIP_PATH_LEN] = {};
  int len = VIP_PATH_LEN;
  int ret = xmllib_get_value(path, VYR_XMLTYPE_TEXT, value, &len);
  if (ret != 0) {
    TRACE(TRACE_WARNING, "xmllib_get_value(%s) failed. (ret=%d)", path, ret);
    value[0] = '\0';
  }
  std::snprintf(field, size, "%s", value);
}

bool AddressFlagsSet(const VIP_INFO* info) {
  return info->ipaddrnodad != 0 || info->ipaddrnoprefixroute != 0 || info->ipaddrpreflft != -1 ||
         info->ipaddrnolabel != 0 || info->ipaddrlabel[0] != '\0' || info->ipaddrbcast[0] != '\0';
}

// The ipaddr/ settings. The flags need the rtnetlink way: without it they
// are traced and dropped, so that the other ways run exactly as without
// them.
void ReadAddressChange(VIP_INFO* info) {
  ReadInts(info, kAddressChange);
  info->ipaddrpreflft = -1;
  if (actflag == 0) {
    ReadInts(info, kAddressFlags);
    ReadText(info, "ipaddr/label", info->ipaddrlabel, sizeof info->ipaddrlabel);
    ReadText(info, "ipaddr/broadcast", info->ipaddrbcast, sizeof info->ipaddrbcast);
  }
  if (info->ipaddrnetlink == 0 && AddressFlagsSet(info)) {
    TRACE(TRACE_WARNING, "ipaddr flags are ignored without ipaddr/netlink.");
    info->ipaddrnodad = info->ipaddrnoprefixroute = info->ipaddrnolabel = 0;
    info->ipaddrpreflft = -1;
    info->ipaddrlabel[0] = info->ipaddrbcast[0] = '\0';
  }
  TRACE(TRACE_INFO,
        "ipaddr     = netlink:%d,nodad:%d,noprefixroute:%d,preferred_lft:%d,nolabel:%d,"
        "label:%s,broadcast:%s",
        info->ipaddrnetlink, info->ipaddrnodad, info->ipaddrnoprefixroute, info->ipaddrpreflft,
        info->ipaddrnolabel, info->ipaddrlabel, info->ipaddrbcast);
}

// Every setting read under the "vip" policy (paths 1 to 24).
void ReadSettings(VIP_INFO* info) {
  ReadCommonText(kPingPath, info->pingcmd, "bin/vyrping");
  if (actflag != 0) {
    // Deactivation probes once, at once, and never forces.
    info->pingtout = 1;
    info->pingretry = 0;
    info->pinginterval = 1;
    info->pingforce = 0;
    ReadInts(info, kDeactivationPing);
  } else {
    ReadInts(info, kActivationPing);
  }
  TRACE(TRACE_INFO, "ping       = cmd:%s,to:%d,rty:%d,itv:%d,frc:%d,nps:%d", info->pingcmd,
        info->pingtout, info->pingretry, info->pinginterval, info->pingforce, info->pingnpsimu);

  ReadCommonText(kArpPath, info->arpcmd, "arp");
  ReadInts(info, kArp);
  TRACE(TRACE_INFO, "arp        = cmd:%s,num:%d,opcode:%d", info->arpcmd, info->arpnum,
        info->arpopcode);
  if (actflag == 0) {
    ReadInts(info, kDefence);
    TRACE(TRACE_INFO, "defence    = na:%d,dad:%d,arpprobe:%d,dadprobe:%d", info->nanum,
          info->dadtout, info->arpprobetout, info->dadprobe);
    ReadInts(info, kAnnounce);
    TRACE(TRACE_INFO, "announce   = itv:%d,bg:%d", info->arpinterval, info->arpbackground);
  }
  ReadInts(info, kLock);
  TRACE(TRACE_INFO, "lock       = short:%d", info->lockshort);

  ReadAddressChange(info);

  ReadCommonText(kIfconfigPath, info->ifconfcmd, "ifconfig");
  ReadInts(info, kIfconfig);
  TRACE(TRACE_INFO, "ifconfig   = cmd:%s,to:%d", info->ifconfcmd, info->ifconftout);

  if (actflag != 0) {
    ReadInts(info, kChecks);
    TRACE(TRACE_INFO, "chk ifconf = exec:%d,rty:%d,itv:%d,err:%d", info->checkifexec,
          info->checkifretry, info->checkifinterval, info->checkiferror);
    TRACE(TRACE_INFO, "chk ping   = exec:%d,rty:%d,itv:%d,err:%d", info->checkpiexec,
          info->checkpiretry, info->checkpiinterval, info->checkpierror);
    TRACE(TRACE_INFO, "chk arp    = to:%d,bg:%d", info->checkarptout, info->checkarpbg);
  }

  ReadInts(info, kLink);
  TRACE(TRACE_INFO, "isMiiw=%d", info->isMiiw);
}

// One of this server's required values ("ip" or "ifname") into `out`.
int ReadServerValue(const VIP_INFO* info, const char* hostname, const char* key, char* out,
                    int size) {
  char path[VIP_PATH_LEN];
  std::snprintf(path, sizeof path, "/root/resource/vip@%s/parameters/%s", info->rscname, key);
  int ret = xmllib_get_srvsep_value(hostname, path, VYR_XMLTYPE_TEXT, out, &size);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "xmllib_get_srvsep_value(%s,%s) failed. (ret=%d)", path, key, ret);
    return vyr::Fail(kServerNotConfigured);
  }
  return 0;
}

// This server's address and interface, unless the command line gave them.
int ReadServerAddress(VIP_INFO* info, const char* hostname) {
  char value[VIP_ADDRBUF_LEN] = {};
  int ret = ReadServerValue(info, hostname, "ip", value, sizeof value);
  if (ret != 0) return ret;
  ret = ReadServerValue(info, hostname, "ifname", info->ifname, sizeof info->ifname);
  if (ret != 0) return ret;
  vip_ipck(value);
  ret = vip_div_ipmask(value, info->addr, info->mask, &info->masklen);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_div_ipmask failed. (ret=%d)", ret);
    return ret;
  }
  return 0;
}

int FillRecord(VIP_INFO* info) {
  char hostname[HOSTNAME_LEN] = {};
  int ret = get_hostname(hostname);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "get_hostname() failed. (ret=%d)", ret);
    return kNoHostname;
  }
  ret = xmllib_load_policy("vip");
  if (ret != 0) {
    TRACE(TRACE_ERROR, "xmllib_load_policy(%s) failed. (ret=%d)", "vip", ret);
    return kPolicyLoad;
  }
  TRACE(TRACE_DETAIL, "xmllib_load_policy(%s) succeeded.", "vip");
  ReadSettings(info);
  ReleasePolicy("vip");

  if (info->addr[0] == '\0') {
    ret = ReadServerAddress(info, hostname);
    if (ret != 0) return ret;
  }
  int size = VIP_PATH_LEN;
  ret = vip_xml_get_path("all", kInstallPath, inspath, &size);
  if (ret != 0) return ret;
  TRACE(TRACE_INFO, "ip:%s, mask:%s, ifname:%s", info->addr, info->mask, info->ifname);
  return 0;
}

// A termination step: traced, and the counter goes down only on success.
void EndStep(int* counter, int (*step)(void), const char* name, const char* never) {
  if (*counter <= 0) {
    TRACE(TRACE_WARNING, "%s", never);
    return;
  }
  int ret = step();
  if (ret != 0) {
    TRACE(TRACE_WARNING, "%s() failed. (ret=%d)", name, ret);
    return;
  }
  TRACE(TRACE_DETAIL, "%s() succeeded.", name);
  --*counter;
}

}  // namespace

int vip_xml_init(void) {
  int ret = xmllib_init("vip");
  if (ret != 0) return vyr::Fail(kXmlInit);
  ++xmliniflag;
  ret = xmllib_load_config();
  if (ret != 0) {
    // The log is not open yet when this runs at start-up; the library has
    // also printed the reason on standard error.
    TRACE(TRACE_ERROR, "xmllib_load_config() failed. (ret=%d) %s", ret, xmllib_last_error());
    return vyr::Fail(kConfigLoad);
  }
  ++xmlconflag;
  return 0;
}

int vip_xml_term(void) {
  TRACE(TRACE_DETAIL, "vip_xml_term()  ENTRY...");
  EndStep(&xmlconflag, xmllib_unload_config, "xmllib_unload_config",
          "Not executed xmllib_load_config()");
  EndStep(&xmliniflag, xmllib_term, "xmllib_term", "Not executed xmllib_init()");
  return 0;
}

int vip_log_init(void) {
  if (xmlconflag == 0) return 0;
  if (xmllib_load_policy("vip") != 0) return vyr::Fail(kPolicyLoad);
  int level = LogSetting("/root/vip/log/level", kDefaultLogLevel);
  int size = LogSetting("/root/vip/log/size", kDefaultLogSize);
  xmllib_unload_policy("vip");
  traceopen("vip", level, size, nullptr);
  ++loginiflag;
  return 0;
}

int vip_log_term(void) {
  if (loginiflag > 0) {
    traceclose();
    --loginiflag;
  }
  return 0;
}

int vip_xml_get_path(const char* type, const char* path, char* buffer, int* size) {
  TRACE(TRACE_DETAIL, "vip_xml_get_path()  ENTRY...");
  int ret = xmllib_load_policy(type);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "xmllib_load_policy(%s) failed. (ret=%d)", type, ret);
    // Without the resource table nobody would read the description.
    return shmrmflag > 0 ? vyr::Fail(kPolicyLoad) : kPolicyLoad;
  }
  TRACE(TRACE_DETAIL, "xmllib_load_policy(%s) succeeded.", type);
  ret = xmllib_get_value(path, VYR_XMLTYPE_TEXT, buffer, size);
  if (ret != 0) {
    TRACE(TRACE_WARNING, "xmllib_get_value(%s) failed. (ret=%d)", path, ret);
    const int status = shmrmflag > 0 ? vyr::Fail(kPathMissing) : kPathMissing;
    ReleasePolicy(type);
    return status;
  }
  return ReleasePolicy(type);
}

int vip_xml_get_config(VIP_INFO* pvipinfo) {
  TRACE(TRACE_DETAIL, "vip_xml_get_config(%p)  ENTRY...", static_cast<void*>(pvipinfo));
  int ret = FillRecord(pvipinfo);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
