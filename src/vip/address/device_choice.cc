#include "vip/address/device_choice.h"

#include <arpa/inet.h>

#include <bitset>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/text.h"
#include "tracersc/tracersc.h"
#include "vip/address/addrtext.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"

namespace {

using namespace vyr::status;

constexpr int kAliasCount = VIP_MAX_ALIAS + 1;

// The part of `name` before its first ':' (all of it when there is none).
void BaseName(const char* name, char (&base)[VIP_NAME_LEN]) {
  size_t len = std::strcspn(name, ":");
  if (len >= sizeof base) len = sizeof base - 1;
  std::memcpy(base, name, len);
  base[len] = '\0';
}

// vip_chk_ifname counts the list in 16 bits; the alias scan must see
// exactly the entries it sees.
uint16_t LookupCount(int num) { return num < 0 ? 0 : static_cast<uint16_t>(num); }

// The alias number `name` stands for when it equals "<base>:<n>" ignoring
// case, n printed as "%d" would print it (no sign, no leading zero), or -1.
int AliasNumber(const char* name, const char* base, size_t base_len) {
  if (!vyr::StartsWithNoCase(name, std::string_view(base, base_len)) || name[base_len] != ':') {
    return -1;
  }
  const char* digits = name + base_len + 1;
  size_t len = std::strlen(digits);
  if (len == 0 || len > 4 || (len > 1 && digits[0] == '0')) return -1;
  int n = 0;
  for (size_t i = 0; i < len; ++i) {
    if (digits[i] < '0' || digits[i] > '9') return -1;
    n = n * 10 + (digits[i] - '0');
  }
  return n;
}

// "<base>:<n>", cut to the 31 characters the name buffers hold.
void FormatCandidate(const char* base, int n, char (&cand)[VIP_NAME_LEN]) {
  char full[VIP_NAME_LEN + 16];
  std::snprintf(full, sizeof full, "%s:%d", base, n);
  std::snprintf(cand, sizeof cand, "%.31s", full);
}

// Writes the first alias "<base>:<n>" (n from 0 up) that no entry carries,
// ignoring case, into `cand`. False when all are taken (`cand` then holds
// the last candidate).
bool FirstFreeAlias(const ipaddrinfo* list, int num, const char* base, char (&cand)[VIP_NAME_LEN]) {
  const size_t base_len = std::strlen(base);
  const uint16_t count = LookupCount(num);
  // "<base>:9999" fits the buffer: every candidate is whole, so one pass over
  // the list tells which numbers are taken.
  if (base_len + 1 + 4 < sizeof cand) {
    std::bitset<kAliasCount> used;
    for (uint16_t i = 0; i < count; ++i) {
      int n = AliasNumber(list[i].ifname, base, base_len);
      if (n >= 0) used.set(static_cast<size_t>(n));
    }
    for (int n = 0; n < kAliasCount; ++n) {
      if (!used.test(static_cast<size_t>(n))) {
        FormatCandidate(base, n, cand);
        return true;
      }
    }
    FormatCandidate(base, VIP_MAX_ALIAS, cand);
    return false;
  }
  // A base name this long cuts the candidates short; test each one as it is.
  for (int n = 0; n < kAliasCount; ++n) {
    FormatCandidate(base, n, cand);
    if (vip_chk_ifname(list, count, cand) == 0) return true;
  }
  return false;
}

void WriteDotted(const in_addr& addr, char* out, size_t size) {
  if (inet_ntop(AF_INET, &addr, out, static_cast<socklen_t>(size)) == nullptr) out[0] = '\0';
}

void SetBroadcast(vdevinfo* vdev) {
  in_addr bcast{};
  bcast.s_addr = vdev->nipel.addr.s_addr | ~vdev->nipel.mask.s_addr;
  WriteDotted(bcast, vdev->bcast, sizeof vdev->bcast);
}

// The broadcast address the settings ask for, in place of the mask's:
// "none" leaves it empty. False, with the trace line, for a text that is
// no IPv4 address.
bool ApplyBroadcast(vdevinfo* vdev) {
  const char* wanted = vdev->opt.broadcast;
  if (wanted[0] == '\0') return true;
  if (std::strcmp(wanted, "none") == 0) {
    vdev->bcast[0] = '\0';
    return true;
  }
  in_addr parsed{};
  if (inet_pton(AF_INET, wanted, &parsed) != 1) {
    TRACE(TRACE_ERROR, "Broadcast address is invalid. [%s]", wanted);
    return false;
  }
  WriteDotted(parsed, vdev->bcast, sizeof vdev->bcast);
  return true;
}

// The device an IPv4 address goes on when the settings name its label or
// want none: "<base>:<label>" or the interface itself. False when neither
// is asked for.
bool ChooseLabel(const char* base, vdevinfo* vdev) {
  if (vdev->opt.label[0] != '\0') {
    char full[VIP_NAME_LEN * 2];
    std::snprintf(full, sizeof full, "%s:%s", base, vdev->opt.label);
    std::snprintf(vdev->vdevname, sizeof vdev->vdevname, "%.31s", full);
    return true;
  }
  if (vdev->opt.nolabel != 0) {
    std::snprintf(vdev->vdevname, sizeof vdev->vdevname, "%s", base);
    return true;
  }
  return false;
}

// A label the kernel takes: at most 15 characters, printable, no blank.
int CheckLabel(const vdevinfo* vdev) {
  const size_t len = std::strlen(vdev->vdevname);
  if (len > VIP_MAX_DEVNAME || std::strlen(vdev->opt.label) >= VIP_NAME_LEN) {
    TRACE(TRACE_ERROR, "Interface name is too long.");
    return kNameTooLong;
  }
  for (size_t i = 0; i < len; ++i) {
    const auto c = static_cast<unsigned char>(vdev->vdevname[i]);
    if (c <= ' ' || c >= 0x7F || c == '/') {
      TRACE(TRACE_ERROR, "Interface label is invalid. [%s]", vdev->vdevname);
      return kNameTooLong;
    }
  }
  return 0;
}

void CopyFromEntry(const ipaddrinfo& entry, vdevinfo* vdev) {
  if (!ipv6flag) {
    if (vdev->sipel.mask[0] == '\0') {
      vdev->nipel.mask = entry.nipel.mask;
      WriteDotted(vdev->nipel.mask, vdev->sipel.mask, sizeof vdev->sipel.mask);
    }
    SetBroadcast(vdev);
  } else if (vdev->sipel.mask[0] == '\0') {
    vdev->sipel.masklen = entry.sipel.masklen;
  }
  std::memcpy(vdev->smac, entry.smac, sizeof vdev->smac);
  std::memcpy(vdev->macaddr, entry.macaddr, 6);
}

// Steps for an IPv4 address once its interface was found.
int ChooseAlias(const ipaddrinfo* list, int num, const char* base, bool has_alias, vdevinfo* vdev) {
  if (!ApplyBroadcast(vdev)) return vyr::Fail(kInternal);
  if (ChooseLabel(base, vdev)) {
    const int ret = CheckLabel(vdev);
    if (ret != 0) return ret;
  } else if (has_alias) {
    if (vip_chk_ifname(list, LookupCount(num), vdev->ifname) != 0) {
      TRACE(TRACE_ERROR, "vip interface already used. [IF: %s]", vdev->ifname);
      return kAliasInUse;
    }
    std::snprintf(vdev->vdevname, sizeof vdev->vdevname, "%s", vdev->ifname);
  } else {
    char cand[VIP_NAME_LEN] = {};
    if (!FirstFreeAlias(list, num, base, cand)) {
      TRACE(TRACE_ERROR, "Not found vip interface. [IP: %s]", vdev->sipel.addr);
      return vyr::Fail(kNoInterface, "Vip interface was not found.");
    }
    std::memcpy(vdev->vdevname, cand, sizeof cand);
    if (std::strlen(vdev->vdevname) > VIP_MAX_DEVNAME) {
      TRACE(TRACE_ERROR, "Interface name is too long.");
      return kNameTooLong;
    }
  }
  TRACE(TRACE_INFO, "vdev  : %s", vdev->vdevname);
  TRACE(TRACE_INFO, "addr  : %s", vdev->sipel.addr);
  TRACE(TRACE_INFO, "mask  : %s", vdev->sipel.mask);
  TRACE(TRACE_INFO, "bcast : %s", vdev->bcast);
  TRACE(TRACE_INFO, "mac   : %s", vdev->smac);
  return 0;
}

// The configured interface is not listed: use it as it stands, with the
// usual defaults for a missing mask.
int UseUnlisted(vdevinfo* vdev) {
  TRACE(TRACE_WARNING, "Not found vip interface. [IF: %s]", vdev->ifname);
  std::snprintf(vdev->vdevname, sizeof vdev->vdevname, "%s", vdev->ifname);
  if (!ipv6flag) {
    char base[VIP_NAME_LEN] = {};
    BaseName(vdev->ifname, base);
    if (ChooseLabel(base, vdev)) {
      const int ret = CheckLabel(vdev);
      if (ret != 0) return ret;
    }
  }
  if (vdev->sipel.mask[0] == '\0') {
    if (!ipv6flag) {
      std::snprintf(vdev->sipel.mask, sizeof vdev->sipel.mask, "%s", "255.255.255.0");
      inet_pton(AF_INET, vdev->sipel.mask, &vdev->nipel.mask);
    } else {
      vdev->sipel.masklen = 64;
    }
  }
  TRACE(TRACE_INFO, "vdev  : %s", vdev->vdevname);
  TRACE(TRACE_INFO, "addr  : %s", vdev->sipel.addr);
  if (!ipv6flag) {
    TRACE(TRACE_INFO, "mask  : %s", vdev->sipel.mask);
    SetBroadcast(vdev);
    if (!ApplyBroadcast(vdev)) return vyr::Fail(kInternal);
    TRACE(TRACE_INFO, "bcast : %s", vdev->bcast);
  } else {
    TRACE(TRACE_INFO, "mask  : %d", vdev->sipel.masklen);
  }
  return 0;
}

int CreateVdevInfo(const ipaddrinfo* list, int num, vdevinfo* vdev) {
  char base[VIP_NAME_LEN] = {};
  bool has_alias = false;
  if (!ipv6flag && vdev->ifname[0] != '\0') {
    BaseName(vdev->ifname, base);
    has_alias = std::strchr(vdev->ifname, ':') != nullptr;
  }
  if (vdev->ifname[0] == '\0') {
    TRACE(TRACE_ERROR, "not found vip interface.");
    return kNoInterface;
  }
  // The interface itself is matched by exact name; only the alias
  // collision test ignores case.
  const char* wanted = ipv6flag ? vdev->ifname : base;
  for (int i = 0; i < num; ++i) {
    char entry_base[VIP_NAME_LEN] = {};
    BaseName(list[i].ifname, entry_base);
    if (std::strcmp(entry_base, wanted) != 0) {
      TRACE(TRACE_DETAIL, "ifname is different(%s).", entry_base);
      continue;
    }
    CopyFromEntry(list[i], vdev);
    if (!ipv6flag) return ChooseAlias(list, num, base, has_alias, vdev);
    TRACE(TRACE_INFO, "if    : %s", vdev->ifname);
    TRACE(TRACE_INFO, "addr  : %s", vdev->sipel.addr);
    TRACE(TRACE_INFO, "mask  : %d", vdev->sipel.masklen);
    TRACE(TRACE_INFO, "mac   : %s", vdev->smac);
    return 0;
  }
  return UseUnlisted(vdev);
}

}  // namespace

int vip_crt_vdevinfo(struct ipaddrinfo* ipaddrlist, int num, struct vdevinfo* vdev) {
  TRACE(TRACE_DETAIL, "vip_crt_vdevinfo()  ENTRY...");
  int ret = CreateVdevInfo(ipaddrlist, num, vdev);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
