#include "vip/address/ipaddr_cmdline.h"

#include <string>

#include "common/shell.h"
#include "tracersc/tracersc.h"

namespace vyr {

namespace {

constexpr const char* kDiscard = " > /dev/null 2>&1";

std::optional<std::string> Finish(std::string line) {
  line += kDiscard;
  if (line.size() >= static_cast<size_t>(VIP_PATH_LEN)) {
    TRACE(TRACE_ERROR, "command line too long. (length=%zu max=%d)", line.size(), VIP_PATH_LEN - 1);
    return std::nullopt;
  }
  return line;
}

std::string Tool(const char* tool) { return ShellDoubleQuote(tool != nullptr ? tool : ""); }

std::string WithPrefix(const char* addr, int masklen) {
  return ShellWord(addr) + "/" + std::to_string(masklen);
}

}  // namespace

std::optional<std::string> AddCommandLine(const vdevinfo& vdev, const char* tool, bool ipv6) {
  if (ipv6) {
    return Finish(Tool(tool) + " " + ShellWord(vdev.ifname) + " add " +
                  WithPrefix(vdev.sipel.addr, vdev.sipel.masklen));
  }
  return Finish(Tool(tool) + " " + ShellWord(vdev.vdevname) + " " + ShellWord(vdev.sipel.addr) +
                " netmask " + ShellWord(vdev.sipel.mask) + " broadcast " + ShellWord(vdev.bcast) +
                " up");
}

std::optional<std::string> RemoveCommandLine(const VIP_INFO& info, bool ipv6) {
  if (!ipv6) return Finish(Tool(info.ifconfcmd) + " " + ShellWord(info.ifname) + " down");
  return Finish(Tool(info.ifconfcmd) + " " + ShellWord(info.ifname) + " del " +
                WithPrefix(info.addr, info.masklen));
}

}  // namespace vyr
