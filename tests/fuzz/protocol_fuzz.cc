// The routing-protocol check over arbitrary values: it must judge any text
// without reading or writing outside it, and say 0 or 1.
#include <cstdlib>
#include <string>

#include "src/vip/check/chkconf.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text = vyrfuzz::CText(data, size);
  int ret = vip_protocol_check(text.data());
  if (ret != 0 && ret != 1) std::abort();
  // An empty value is always a finding.
  if (text.empty() && ret != 1) std::abort();
  return 0;
}
