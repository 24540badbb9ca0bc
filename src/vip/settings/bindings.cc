#include "vip/settings/bindings.h"

#include "tracersc/tracersc.h"
#include "vip/base/globals.h"
#include "vyripc.h"

int shmrmflag = 0;
int shmnmflag = 0;
int semflag = 0;
int sementifflag = 0;

namespace {

// Traces the result of one library call on behalf of the wrapper `func`:
// a failure is only a warning, because the run goes on without the object.
bool Succeeded(int line, const char* func, const char* call, int ret) {
  if (ret != 0) {
    trace(TRACE_WARNING, __FILE__, line, func, "%s() failed. (ret=%d)", call, ret);
    return false;
  }
  trace(TRACE_DETAIL, __FILE__, line, func, "%s() succeeded.", call);
  return true;
}

}  // namespace

int vip_shmrm_attach(void) {
  TRACE(TRACE_DETAIL, "vip_shmrm_attach()  ENTRY...");
  if (Succeeded(__LINE__, __func__, "shmrm_attach", shmrm_attach())) ++shmrmflag;
  return 0;
}

int vip_shmrm_detach(void) {
  TRACE(TRACE_DETAIL, "vip_shmrm_detach()  ENTRY...");
  if (shmrmflag > 0 && Succeeded(__LINE__, __func__, "shmrm_detach", shmrm_detach())) {
    --shmrmflag;
  }
  return 0;
}

int vip_shmrm_setdescript(const char* rscname, const char* grpname) {
  TRACE(TRACE_DETAIL, "vip_shmrm_setdescript()  ENTRY...");
  if (shmrmflag <= 0) return 0;
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  if (text[0] == '\0') {
    vip_set_shmbuf("%s", "Success.");
    vip_get_shmbuf(text);
  }
  Succeeded(__LINE__, __func__, "shmrm_setdescript",
            shmrm_setdescript(grpname, "vip", rscname, text, VIP_SHMBUF_LEN));
  return 0;
}

int vip_shmnm_attach(void) {
  TRACE(TRACE_DETAIL, "vip_shmnm_attach()  ENTRY...");
  if (Succeeded(__LINE__, __func__, "shmnm_attach", shmnm_attach())) ++shmnmflag;
  return 0;
}

int vip_shmnm_detach(void) {
  TRACE(TRACE_DETAIL, "vip_shmnm_detach()  ENTRY...");
  if (shmnmflag > 0 && Succeeded(__LINE__, __func__, "shmnm_detach", shmnm_detach())) {
    --shmnmflag;
  }
  return 0;
}

int vip_shmnm_getnpsimuflag(int* npsimuflag) {
  TRACE(TRACE_DETAIL, "vip_shmnm_getnpsimuflag()  ENTRY...");
  // Unattached, the caller's flag keeps its value: not set.
  if (shmnmflag <= 0) return 0;
  int ret = shmnm_getnpsimuflag(npsimuflag);
  Succeeded(__LINE__, __func__, "shmnm_getnpsimuflag", ret);
  return ret;
}

int vip_sem_attach(void) {
  TRACE(TRACE_DETAIL, "vip_sem_attach()  ENTRY...");
  if (Succeeded(__LINE__, __func__, "sem_attach", sem_attach())) ++semflag;
  return 0;
}

int vip_sem_detach(void) {
  TRACE(TRACE_DETAIL, "vip_sem_detach()  ENTRY...");
  if (semflag > 0 && Succeeded(__LINE__, __func__, "sem_detach", sem_detach())) --semflag;
  return 0;
}

int vip_sem_entercrit_ifconfig(void) {
  TRACE(TRACE_DETAIL, "vip_sem_entercrit_ifconfig()  ENTRY...");
  if (semflag != 0 &&
      Succeeded(__LINE__, __func__, "sem_entercrit_ifconfig", sem_entercrit_ifconfig())) {
    ++sementifflag;
  }
  return 0;
}

int vip_sem_leavecrit_ifconfig(void) {
  TRACE(TRACE_DETAIL, "vip_sem_leavecrit_ifconfig()  ENTRY...");
  // Without a successful enter there is nothing to give back.
  if (semflag > 0 && sementifflag > 0 &&
      Succeeded(__LINE__, __func__, "sem_leavecrit_ifconfig", sem_leavecrit_ifconfig())) {
    --sementifflag;
  }
  return 0;
}
