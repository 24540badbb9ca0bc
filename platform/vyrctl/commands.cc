#include "commands.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "output.h"
#include "vyripc_admin.h"

namespace vyrctl {

namespace {

void PrintError(const char* what, int ret) {
  int err = vyripc_last_errno();
  if (err != 0) {
    std::fprintf(stderr, "vyrctl: %s: %s (error %d: %s)\n", what, vyripc_strerror(ret), ret,
                 std::strerror(err));
  } else {
    std::fprintf(stderr, "vyrctl: %s: %s (error %d)\n", what, vyripc_strerror(ret), ret);
  }
}

bool NotStarted(int ret) { return ret == SHMRM_ERR_NOTINIT || ret == SHMRM_ERR_SHMGET; }

int ReportAttachFailure(const char* what, int ret) {
  if (NotStarted(ret)) {
    std::fprintf(stderr, "vyrctl: not started for %s (run 'vyrctl start')\n",
                 vyripc_run_dir().c_str());
    return kExitNotStarted;
  }
  PrintError(what, ret);
  return kExitFailure;
}

}  // namespace

int Start() {
  int already = 0;
  int ret = vyripc_create(&already);
  if (ret != 0) {
    PrintError("cannot start", ret);
    return kExitFailure;
  }
  std::printf("vyrctl: %s for %s\n", already ? "already started" : "started",
              vyripc_run_dir().c_str());
  return kExitOk;
}

int Stop() {
  int removed = 0;
  int ret = vyripc_remove(&removed);
  if (ret != 0) {
    PrintError("cannot stop", ret);
    return kExitFailure;
  }
  if (removed == 0) {
    std::printf("vyrctl: not running for %s, nothing to stop\n", vyripc_run_dir().c_str());
  } else {
    std::printf("vyrctl: stopped for %s\n", vyripc_run_dir().c_str());
  }
  return kExitOk;
}

int Status(StatusFormat format) {
  int ret = shmrm_attach();
  if (ret != 0) return ReportAttachFailure("cannot read the resource table", ret);
  std::vector<ShmrmRow> rows;
  ret = shmrm_listrows(&rows);
  shmrm_detach();
  if (ret != 0) {
    PrintError("cannot read the resource table", ret);
    return kExitFailure;
  }
  std::string text = format == StatusFormat::kJson ? FormatJson(rows) : FormatTsv(rows);
  std::fwrite(text.data(), 1, text.size(), stdout);
  return kExitOk;
}

int Npsimu(int flag) {
  int ret = shmnm_attach();
  if (ret != 0) return ReportAttachFailure("cannot reach the node table", ret);
  if (flag == -1) {
    int value = 0;
    ret = shmnm_getnpsimuflag(&value);
    if (ret == 0) std::printf("%s\n", value ? "on" : "off");
  } else {
    ret = shmnm_setnpsimuflag(flag);
    if (ret == 0) std::printf("vyrctl: npsimu %s\n", flag ? "on" : "off");
  }
  shmnm_detach();
  if (ret != 0) {
    PrintError("cannot use the npsimu flag", ret);
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace vyrctl
