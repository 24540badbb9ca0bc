#include "value/hostname.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tracersc/tracersc.h"

int get_hostname(char* hostname) {
  TRACE(TRACE_DETAIL, "get_hostname()  ENTRY...");
  if (hostname == nullptr) {
    TRACE(TRACE_ERROR, "get_hostname() failed. (errno=%d)", EINVAL);
    return 1;
  }
  char name[HOSTNAME_LEN] = {};
  if (::gethostname(name, sizeof name - 1) != 0) {
    const int err = errno;
    TRACE(TRACE_ERROR, "get_hostname() failed. (errno=%d)", err);
    return 1;
  }
  // gethostname need not terminate a name that filled the buffer.
  name[HOSTNAME_LEN - 1] = '\0';
  if (char* dot = std::strchr(name, '.')) *dot = '\0';
  std::memcpy(hostname, name, sizeof name);
  TRACE(TRACE_DETAIL, "return(%d)", 0);
  return 0;
}
