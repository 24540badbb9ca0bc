#include "vip/address/ipaddr_cmdline.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <string>

#include "common/shell.h"
#include "common/text.h"
#include "tracersc/tracersc.h"

namespace vyr {

namespace {

constexpr const char* kDiscard = " > /dev/null 2>&1";

bool IsBlankOrControl(char c) {
  const unsigned char u = static_cast<unsigned char>(c);
  return u <= 0x20 || u == 0x7f;
}

// An IPv6 address may carry a zone ("fe80::1%eth0"); the zone must be a
// device name.
bool IsIpv6Address(std::string_view text) {
  const size_t zone = text.find('%');
  if (zone == std::string_view::npos) return vyr::IsInetAddress(AF_INET6, text);
  return vyr::IsInetAddress(AF_INET6, text.substr(0, zone)) && IsLegalIfName(text.substr(zone + 1));
}

bool Refuse(const char* what, const char* value) {
  TRACE(TRACE_ERROR, "invalid %s for the interface tool. (%s=\"%s\")", what, what, value);
  return false;
}

bool CheckTool(const char* tool) {
  if (tool == nullptr || tool[0] == '\0') return Refuse("path", tool == nullptr ? "" : tool);
  return true;
}

bool CheckName(const char* name) { return IsLegalIfName(name) || Refuse("ifname", name); }

bool CheckIpv4(const char* what, const char* value) {
  return vyr::IsInetAddress(AF_INET, value) || Refuse(what, value);
}

bool CheckIpv6(const char* addr) { return IsIpv6Address(addr) || Refuse("addr", addr); }

std::optional<std::string> Finish(std::string line) {
  line += kDiscard;
  if (line.size() >= static_cast<size_t>(VIP_PATH_LEN)) {
    TRACE(TRACE_ERROR, "command line too long. (length=%zu max=%d)", line.size(), VIP_PATH_LEN - 1);
    return std::nullopt;
  }
  return line;
}

std::string WithPrefix(const char* addr, int masklen) {
  return std::string(addr) + "/" + std::to_string(masklen);
}

}  // namespace

bool IsLegalIfName(std::string_view name) {
  if (name.empty() || name.size() >= IFNAMSIZ || name == "." || name == "..") return false;
  for (char c : name) {
    if (c == '/' || IsBlankOrControl(c)) return false;
  }
  return true;
}

std::optional<std::string> AddCommandLine(const vdevinfo& vdev, const char* tool, bool ipv6) {
  if (!CheckTool(tool)) return std::nullopt;
  if (ipv6) {
    if (!CheckName(vdev.ifname) || !CheckIpv6(vdev.sipel.addr)) return std::nullopt;
    return Finish(ShellQuote(tool) + " " + ShellQuote(vdev.ifname) + " add " +
                  ShellQuote(WithPrefix(vdev.sipel.addr, vdev.sipel.masklen)));
  }
  if (!CheckName(vdev.vdevname) || !CheckIpv4("addr", vdev.sipel.addr) ||
      !CheckIpv4("mask", vdev.sipel.mask) || !CheckIpv4("bcast", vdev.bcast)) {
    return std::nullopt;
  }
  return Finish(ShellQuote(tool) + " " + ShellQuote(vdev.vdevname) + " " +
                ShellQuote(vdev.sipel.addr) + " netmask " + ShellQuote(vdev.sipel.mask) +
                " broadcast " + ShellQuote(vdev.bcast) + " up");
}

std::optional<std::string> RemoveCommandLine(const VIP_INFO& info, bool ipv6) {
  if (!CheckTool(info.ifconfcmd) || !CheckName(info.ifname)) return std::nullopt;
  if (!ipv6) return Finish(ShellQuote(info.ifconfcmd) + " " + ShellQuote(info.ifname) + " down");
  if (!CheckIpv6(info.addr)) return std::nullopt;
  return Finish(ShellQuote(info.ifconfcmd) + " " + ShellQuote(info.ifname) + " del " +
                ShellQuote(WithPrefix(info.addr, info.masklen)));
}

}  // namespace vyr
