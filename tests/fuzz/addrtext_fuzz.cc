// The address text helpers over arbitrary text: family decision,
// address/prefix split, newline cut and MAC conversion.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "src/vip/address/addrtext.h"
#include "src/vip/base/globals.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

void CheckSplit(const std::string& text) {
  vip_ipck(text.c_str());
  // Canaries around the fixed-size outputs catch a write past their end.
  struct {
    char addr[VIP_ADDR_LEN];
    char guard1[8];
    char mask[VIP_ADDR_LEN];
    char guard2[8];
  } out;
  std::memset(&out, 0x5a, sizeof out);
  out.addr[0] = '\0';
  out.mask[0] = '\0';
  int masklen = -12345;
  int ret = vip_div_ipmask(text.c_str(), out.addr, out.mask, &masklen);
  if (std::ranges::count(out.guard1, 0x5a) + std::ranges::count(out.guard2, 0x5a) != 16) {
    std::abort();
  }
  if (ret != 0 && ret != 31) std::abort();
  if (strnlen(out.addr, sizeof out.addr) == sizeof out.addr) std::abort();
  if (strnlen(out.mask, sizeof out.mask) == sizeof out.mask) std::abort();
  if (ret == 0 && text.find('/') != std::string::npos && masklen > (ipv6flag ? 128 : 32)) {
    std::abort();
  }
}

// A refused MAC text leaves all six bytes zero.
void CheckMac(const std::string& text) {
  unsigned char mac[6];
  std::memset(mac, 0xee, sizeof mac);
  int ret = vip_crt_macaddr(text.c_str(), mac);
  if (ret != 0 && (ret != 18 || std::ranges::any_of(mac, [](unsigned char b) { return b != 0; }))) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text = vyrfuzz::CText(data, size);
  CheckSplit(text);
  CheckMac(text);
  vip_chop(text.data());  // AddressSanitizer catches a read or write outside the text
  return 0;
}
