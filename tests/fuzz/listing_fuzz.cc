// The older-layout listing parser over arbitrary text, the first byte picking the
// family (even IPv4, odd IPv6): `count` entries, every text field terminated.
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "src/vip/address/listing_parse.h"
#include "src/vip/base/globals.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  ipv6flag = data[0] & 1;
  std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  ipaddrinfo* list = nullptr;
  int num = -1;
  int ret = vyr::ParseIfconfigText(text, ipv6flag != 0, &list, &num);
  if (ret == 0) {
    if (num < 0 || (num > 0 && list == nullptr)) std::abort();
    for (int i = 0; i < num; ++i) {
      // Every text field must stay terminated inside its buffer.
      if (strnlen(list[i].ifname, sizeof list[i].ifname) == sizeof list[i].ifname) std::abort();
      const sipel& t = list[i].sipel;
      if (strnlen(t.addr, sizeof t.addr) == sizeof t.addr) std::abort();
      if (strnlen(t.mask, sizeof t.mask) == sizeof t.mask) std::abort();
      if (strnlen(list[i].smac, sizeof list[i].smac) == sizeof list[i].smac) std::abort();
    }
  } else if (ret != 10 && ret != 18 && ret != 31) {
    std::abort();
  }
  std::free(list);
  return 0;
}
