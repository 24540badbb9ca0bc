#include "support/fake_tool.h"

#include "support/sh.h"

namespace vyrtest {

bool NoProcessWithin(const std::string& text, std::chrono::milliseconds limit) {
  // "[x]rest" matches the text but not the shell that runs pgrep with it.
  const std::string pgrep = "pgrep -f '[" + text.substr(0, 1) + "]" + text.substr(1) + "'";
  const std::string now_ms = "$(($(date +%s%N) / 1000000))";
  return Sh("end=$((" + now_ms + " + " + std::to_string(limit.count()) + ")); while " + pgrep +
            " >/dev/null; do [ " + now_ms + " -ge $end ] && exit 1; sleep 0.02; done") == 0;
}

std::string EntryTexts(const ipaddrinfo* list, int num) {
  std::string out;
  for (int k = 0; k < num; ++k) {
    const ipaddrinfo* e = &list[k];
    out += std::string(e->ifname) + " " + e->sipel.addr + " " + e->sipel.mask + " /" +
           std::to_string(e->sipel.masklen) + " " + e->smac + "\n";
  }
  return out;
}

}  // namespace vyrtest
