#include "vip/base/globals.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

int actflag = -1;
int nomuseflag = 0;
int dynamicflag = 0;
int ipv6flag = 0;
int IsIfconfig = 1;
char inspath[VIP_PATH_LEN];
char rdrctpath[VIP_PATH_LEN];
char rdrctfile[VIP_PATH_LEN];

namespace {
// The status description. Several probe threads may report at once; the
// lock keeps each text whole.
char shmbuf[VIP_SHMBUF_LEN];
std::mutex shmbuf_lock;
}  // namespace

void vip_set_shmbuf(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  vip_vset_shmbuf(format, ap);
  va_end(ap);
}

void vip_vset_shmbuf(const char* format, va_list ap) {
  char text[VIP_SHMBUF_LEN] = {};
  std::vsnprintf(text, sizeof text, format, ap);
  std::lock_guard<std::mutex> hold(shmbuf_lock);
  std::memcpy(shmbuf, text, sizeof text);
}

void vip_get_shmbuf(char* out) {
  std::lock_guard<std::mutex> hold(shmbuf_lock);
  std::memcpy(out, shmbuf, VIP_SHMBUF_LEN);
}

void vip_clear_shmbuf(void) {
  std::lock_guard<std::mutex> hold(shmbuf_lock);
  std::memset(shmbuf, 0, sizeof shmbuf);
}
