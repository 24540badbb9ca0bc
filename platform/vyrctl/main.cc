// vyrctl: starts and stops the cluster's IPC objects of this node and shows
// what the resource agents stored in them. See docs/vyrctl.1.
#include <cstdio>
#include <cstring>

#include "commands.h"

namespace {

constexpr const char* kUsage =
    "usage: vyrctl start\n"
    "       vyrctl stop\n"
    "       vyrctl status [--json]\n"
    "       vyrctl npsimu [on|off]\n"
    "       vyrctl --help\n"
    "\n"
    "The objects are keyed by the folder $VYR_RUN_DIR (default /run/vyrcluster).\n";

int Usage(const char* problem, const char* arg) {
  if (problem != nullptr) std::fprintf(stderr, "vyrctl: %s '%s'\n", problem, arg);
  std::fputs(kUsage, stderr);
  return vyrctl::kExitUsage;
}

bool Is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

int Dispatch(int argc, char** argv) {
  const char* cmd = argv[1];
  int extra = argc - 2;
  char** rest = argv + 2;
  if (Is(cmd, "start") || Is(cmd, "stop")) {
    if (extra != 0) return Usage("unexpected argument", rest[0]);
    return Is(cmd, "start") ? vyrctl::Start() : vyrctl::Stop();
  }
  if (Is(cmd, "status")) {
    if (extra == 0) return vyrctl::Status(vyrctl::StatusFormat::kTsv);
    if (extra == 1 && Is(rest[0], "--json")) return vyrctl::Status(vyrctl::StatusFormat::kJson);
    return Usage("unexpected argument", Is(rest[0], "--json") ? rest[1] : rest[0]);
  }
  if (Is(cmd, "npsimu")) {
    if (extra == 0) return vyrctl::Npsimu(-1);
    if (extra == 1 && Is(rest[0], "on")) return vyrctl::Npsimu(1);
    if (extra == 1 && Is(rest[0], "off")) return vyrctl::Npsimu(0);
    if (extra == 1) return Usage("npsimu takes 'on' or 'off', not", rest[0]);
    return Usage("unexpected argument", rest[1]);
  }
  return Usage("unknown command", cmd);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage(nullptr, nullptr);
  if (Is(argv[1], "--help") || Is(argv[1], "-h") || Is(argv[1], "help")) {
    std::fputs(kUsage, stdout);
    return vyrctl::kExitOk;
  }
  return Dispatch(argc, argv);
}
