#include "vip/run/lanprobe.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "common/text.h"
#include "nicCommon/ifaddrs_list.h"
#include "tracersc/tracersc.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"
#include "vip/defence/lan_query.h"

namespace {

// The LAN could not be asked: status 2 of --lanprobe.
constexpr int kCannotAsk = vyr::status::kPingUnexpected;
constexpr int kAnnounceIntervalMs = 200;
constexpr int kMaxWaitMs = 60000;
constexpr int kMaxCount = 100;

int Invalid(const char* why, const char* value) {
  TRACE(TRACE_ERROR, "Invalid option. (%s : %s)", why, value);
  return vyr::Fail(vyr::status::kInvalidOption, "Option was invalid.");
}

// A whole decimal number from `min` to `max`.
bool ReadNumber(const char* text, int min, int max, int* out) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || value < min || value > max) return false;
  *out = static_cast<int>(value);
  return true;
}

// The address without a prefix; false when it is no IPv4 or IPv6 address.
bool ReadAddress(const char* text, char* out, std::size_t size) {
  const std::size_t len = std::strcspn(text, "/");
  if (len == 0 || len >= size) return false;
  std::snprintf(out, size, "%.*s", static_cast<int>(len), text);
  unsigned char bytes[sizeof(in6_addr)];
  return inet_pton(AF_INET, out, bytes) == 1 || inet_pton(AF_INET6, out, bytes) == 1;
}

// A name the kernel could give an interface (an alias label included).
bool LegalName(const char* name) {
  const std::size_t len = std::strlen(name);
  if (len == 0 || len >= IFNAMSIZ) return false;
  for (const char* c = name; *c != '\0'; ++c) {
    if (*c == '/' || *c <= ' ' || *c > '~') return false;
  }
  return std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
}

// Whether `addr` is on `ifname`'s interface, alias labels included.
bool AddressIsHere(const char* ifname, const char* addr) {
  in6_addr want{};
  if (inet_pton(AF_INET6, addr, &want) == 1)
    return vyr::AddressOnInterface(ifname, AF_INET6, &want) == 1;
  return inet_pton(AF_INET, addr, &want) == 1 &&
         vyr::AddressOnInterface(ifname, AF_INET, &want) == 1;
}

void Reannounce(const VIP_LANPROBE& probe) {
  if (!AddressIsHere(probe.ifname, probe.addr)) {
    TRACE(TRACE_INFO, "%s is not on %s: not re-announced.", probe.addr, probe.ifname);
    return;
  }
  const int ret = vip_lan_announce(probe.ifname, probe.addr, probe.count, kAnnounceIntervalMs);
  if (ret != 0) {
    TRACE(TRACE_WARNING, "vip_lan_announce(%s) failed. (ret=%d)", probe.addr, ret);
  } else {
    TRACE(TRACE_INFO, "%s re-announced %d times on %s.", probe.addr, probe.count, probe.ifname);
  }
}

}  // namespace

int vip_lanprobe_options(int argc, char** argv, VIP_LANPROBE* probe) {
  bool have_addr = false;
  bool have_ifname = false;
  for (int i = 2; i < argc; ++i) {
    const char* option = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (value == nullptr || value[0] == '-') return Invalid(option, "no value");
    ++i;
    if (vyr::EqualsNoCase(option, "-a")) {
      if (!ReadAddress(value, probe->addr, sizeof probe->addr)) return Invalid(option, value);
      have_addr = true;
    } else if (vyr::EqualsNoCase(option, "-i")) {
      if (!LegalName(value)) return Invalid(option, value);
      std::snprintf(probe->ifname, sizeof probe->ifname, "%s", value);
      have_ifname = true;
    } else if (vyr::EqualsNoCase(option, "-w")) {
      if (!ReadNumber(value, 1, kMaxWaitMs, &probe->wait_ms)) return Invalid(option, value);
    } else if (vyr::EqualsNoCase(option, "-n")) {
      if (!ReadNumber(value, 0, kMaxCount, &probe->count)) return Invalid(option, value);
    } else {
      return Invalid("unknown", option);
    }
  }
  if (!have_addr) return Invalid("-a", "missing");
  if (!have_ifname) return Invalid("-i", "missing");
  return 0;
}

int vip_lanprobe(const VIP_LANPROBE& probe) {
  TRACE(TRACE_INFO, "lanprobe %s on %s, %d ms", probe.addr, probe.ifname, probe.wait_ms);
  char mac[32] = {};
  const int ret = vip_lan_query(probe.ifname, probe.addr, probe.wait_ms, true, mac, sizeof mac);
  if (ret == vyr::status::kInUse) {
    TRACE(TRACE_ERROR, "%s is already exist.(macaddr : %s)", probe.addr, mac);
    return vyr::Fail(ret, "IP address was already used. (MAC=%s)", mac);
  }
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_lan_query(%s) failed. (ret=%d)", probe.addr, ret);
    return vyr::Fail(kCannotAsk, "LAN probe could not run. (ret=%d)", ret);
  }
  TRACE(TRACE_INFO, "lanprobe %s: no other host answered.", probe.addr);
  if (probe.count > 0) Reannounce(probe);
  return 0;
}

int vip_lanprobe_main(int argc, char** argv) {
  VIP_LANPROBE probe{};
  int ret = vip_lanprobe_options(argc, argv, &probe);
  if (ret == 0) ret = vip_lanprobe(probe);
  if (ret != 0) {
    char description[VIP_SHMBUF_LEN];
    vip_get_shmbuf(description);
    std::printf("%s\n", description);
    std::fflush(stdout);
  }
  return ret;
}
