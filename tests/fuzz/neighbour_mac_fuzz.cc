// The neighbour-table MAC scanner over arbitrary lookup output, line by
// line as the probe reads it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "src/vip/address/addrtext.h"
#include "src/vip/defence/probe.h"

constexpr int kLineLen = vyr::kLookupLineLen;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  size_t pos = 0;
  while (pos < text.size()) {
    // The probe reads through a 1024-byte line buffer.
    size_t nl = text.find('\n', pos);
    size_t end = nl == std::string::npos ? text.size() : nl + 1;
    if (end - pos > static_cast<size_t>(kLineLen - 1)) end = pos + kLineLen - 1;
    char line[kLineLen] = {};
    std::memcpy(line, text.data() + pos, end - pos);
    pos = end;
    vip_chop(line);
    char mac[vyr::kMacTextLen];
    std::memset(mac, 'X', sizeof mac);
    if (vyr::FindMacToken(line, mac)) {
      size_t len = strnlen(mac, sizeof mac);
      // A whole, terminated token made of the line's own characters.
      if (len == 0 || len == sizeof mac) std::abort();
      if (std::strchr(mac, ' ') != nullptr || std::strchr(mac, '\t') != nullptr) std::abort();
      break;
    }
  }
  return 0;
}
