#include "vip/base/status.h"

#include <cstdarg>

#include "vip/base/globals.h"

namespace vyr {

int Fail(int status) {
  vip_set_shmbuf("Internal error. (status=%d)", status);
  return status;
}

int Fail(int status, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  vip_vset_shmbuf(format, ap);
  va_end(ap);
  return status;
}

}  // namespace vyr
