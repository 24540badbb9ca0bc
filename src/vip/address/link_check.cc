#include "vip/address/link_check.h"

#include <linux/ethtool.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

#include "nicCommon/nic_ioctl.h"
#include "tracersc/tracersc.h"

namespace {

constexpr uint16_t kLinkStatus = 0x0004;  // BMSR_LSTATUS, latches low
constexpr uint16_t kHealthMask = 0x0016;  // link status, jabber, remote fault
constexpr int kRegisterCount = 8;

// What the link check works on: the caller's socket and one request named
// after the device.
struct Query {
  int sock;
  const char* ifname;
  ifreq ifr;
};

unsigned int Req(unsigned long request) { return static_cast<unsigned int>(request); }

void TraceIoctlFailure(int level, int err, const Query& q, unsigned long request) {
  TRACE(level, "ioctl() failed. (err=%d if=%s sock=%d req=%#x)", err, q.ifname, q.sock,
        Req(request));
}

// The MII words sit at the start of the request's union.
mii_ioctl_data GetMii(const ifreq& ifr) {
  mii_ioctl_data mii;
  std::memcpy(&mii, &ifr.ifr_ifru, sizeof mii);
  return mii;
}

void PutMii(ifreq* ifr, const mii_ioctl_data& mii) {
  std::memcpy(&ifr->ifr_ifru, &mii, sizeof mii);
}

// Ethtool link query: 0 up, 20 down, or the failure (12, 13).
struct EthtoolResult {
  bool answered;
  int result;
};

EthtoolResult QueryEthtool(Query* q) {
  ethtool_value value{};
  value.cmd = ETHTOOL_GLINK;
  q->ifr.ifr_data = reinterpret_cast<char*>(&value);
  if (nic_ioctl_fn(q->sock, SIOCETHTOOL, &q->ifr) < 0) {
    const int err = errno;
    TraceIoctlFailure(TRACE_ERROR, err, *q, SIOCETHTOOL);
    return {false, err == EOPNOTSUPP ? MIIW_RET_FAIL_IOCTL_NOTSUPPORT : MIIW_RET_FAIL_IOCTL};
  }
  if (value.data == 0) {
    TRACE(TRACE_ERROR, "*** NIC link status was down. (if=%s sock=%d) ***", q->ifname, q->sock);
    return {true, MIIW_RET_FAIL_NICDOWN};
  }
  TRACE(TRACE_DETAIL, "*** NIC Link Up (if=%s sock=%d) ***", q->ifname, q->sock);
  return {true, MIIW_RET_SUCCESS};
}

// Finds the PHY and the register request the driver takes: SIOCGMIIREG, or
// the older device-private pair. Nullopt when the driver takes neither.
std::optional<unsigned long> FindRegisterRequest(Query* q) {
  if (nic_ioctl_fn(q->sock, SIOCGMIIPHY, &q->ifr) == 0) return SIOCGMIIREG;
  TraceIoctlFailure(TRACE_WARNING, errno, *q, SIOCGMIIPHY);
  if (nic_ioctl_fn(q->sock, SIOCDEVPRIVATE, &q->ifr) == 0) return SIOCDEVPRIVATE + 1;
  TraceIoctlFailure(TRACE_ERROR, errno, *q, SIOCDEVPRIVATE);
  return std::nullopt;
}

// Reads one register; `clear` starts from zeroed MII words.
std::optional<uint16_t> ReadRegister(Query* q, unsigned long request, uint16_t phyid, int reg,
                                     bool clear) {
  mii_ioctl_data mii = clear ? mii_ioctl_data{} : GetMii(q->ifr);
  mii.phy_id = phyid;
  mii.reg_num = static_cast<uint16_t>(reg);
  PutMii(&q->ifr, mii);
  if (nic_ioctl_fn(q->sock, request, &q->ifr) < 0) {
    TRACE(TRACE_ERROR, "ioctl() failed. (err=%d if=%s sock=%d req=%#x reg=%d)", errno, q->ifname,
          q->sock, Req(request), reg);
    return std::nullopt;
  }
  return GetMii(q->ifr).val_out;
}

// The verdict from the two reads of the basic mode status register.
int DecideLink(const Query& q, uint16_t basic, uint16_t status) {
  const unsigned int health = basic & kHealthMask;
  if (health == kLinkStatus) {
    TRACE(TRACE_DETAIL,
          "*** NIC link status was up, everything is working. (if=%s sock=%d basic=%#x "
          "status=%4.4x) ***",
          q.ifname, q.sock, static_cast<unsigned int>(basic), health);
    return MIIW_RET_SUCCESS;
  }
  if ((basic & kLinkStatus) != 0) {
    TRACE(TRACE_ERROR,
          "*** NIC link status was previously down, but now up. (if=%s sock=%d basic=%#x "
          "status=%4.4x) ***",
          q.ifname, q.sock, static_cast<unsigned int>(basic), health);
    return MIIW_RET_SUCCESS;
  }
  const unsigned int now = status & kLinkStatus;
  if (now != 0) {
    TRACE(TRACE_DETAIL, "*** NIC Link Up (if=%s sock=%d status=%#x) ***", q.ifname, q.sock, now);
    return MIIW_RET_SUCCESS;
  }
  TRACE(TRACE_ERROR, "*** NIC link status was down. (if=%s sock=%d status=%4.4x) ***", q.ifname,
        q.sock, now);
  return MIIW_RET_FAIL_NICDOWN;
}

int QueryMii(Query* q) {
  auto request = FindRegisterRequest(q);
  if (!request) return MIIW_RET_FAIL_IOCTL_NOTSUPPORT;
  const uint16_t phyid = GetMii(q->ifr).phy_id;
  TRACE(TRACE_DETAIL, "physical-id -> %d (if=%s sock=%d)", phyid, q->ifname, q->sock);

  uint16_t regval[kRegisterCount] = {};
  for (int reg = 0; reg < kRegisterCount; ++reg) {
    auto value = ReadRegister(q, *request, phyid, reg, true);
    if (!value) return MIIW_RET_FAIL_IOCTL;
    regval[reg] = *value;
    TRACE(TRACE_DETAIL, "device -> %s", q->ifname);
    TRACE(TRACE_DETAIL, "phyid -> %d", phyid);
    TRACE(TRACE_DETAIL, "MII register offset -> %d", reg);
    TRACE(TRACE_DETAIL, "MII register value -> %4.4x", static_cast<unsigned int>(regval[reg]));
  }
  if (regval[0] == 0xFFFF || regval[1] == 0) {
    TRACE(TRACE_ERROR, "no MII transceiver. (if=%s sock=%d regval[0]=%#x regval[1]=%#x)", q->ifname,
          q->sock, static_cast<unsigned int>(regval[0]), static_cast<unsigned int>(regval[1]));
  }
  // Link status latches low: a second read shows the present state.
  auto status = ReadRegister(q, *request, phyid, MII_BMSR, false);
  if (!status) return MIIW_RET_FAIL_IOCTL;
  return DecideLink(*q, regval[MII_BMSR], *status);
}

int CheckLink(Query* q, int method) {
  if (method < 0 || method > 2) {
    TRACE(TRACE_ERROR, "Method was invalid.(method=%d) ***", method);
    return MIIW_RET_FAIL_PARAM;
  }
  if (method != 1) {
    EthtoolResult eth = QueryEthtool(q);
    if (eth.answered || method == 2) return eth.result;
  }
  return QueryMii(q);
}

}  // namespace

int vip_miiw_ioctl(int* sock, const char* ifname, int method) {
  TRACE(TRACE_DETAIL, "vip_miiw_ioctl()  ENTRY...");
  TRACE(TRACE_DETAIL, "miiw monitor start - (sock=%d)", *sock);
  TRACE(TRACE_DETAIL, "miiw monitor method = %d", method);
  Query q{*sock, ifname, ifreq{}};
  std::memcpy(q.ifr.ifr_name, ifname, strnlen(ifname, sizeof q.ifr.ifr_name));
  int ret = CheckLink(&q, method);
  TRACE(ret != 0 ? TRACE_ERROR : TRACE_DETAIL, "end - (ret=%d)", ret);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
