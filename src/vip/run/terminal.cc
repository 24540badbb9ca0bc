#include "vip/run/terminal.h"

#include <unistd.h>

#include <cstdio>

#include "vip/base/status.h"

namespace {

using vyr::status::kInvalidOption;

constexpr const char* kUsage =
    "usage: vyrvip --add -a ipaddress[/subnet] [-i interface]\n"
    "              --del -a ipaddress\n";

std::string Reason(const VIP_OUTCOME& o) {
  switch (o.early) {
    case VIP_EARLY::kNoMode:
      return "no mode given: --active, --deactive, --add, --del, --dactive, --ddeactive or --test";
    case VIP_EARLY::kNotRoot:
      return "not run as root";
    case VIP_EARLY::kNone:
      break;
  }
  // "Success." is what a run that wrote no description stores while the
  // resource table is attached; on a failed run it says nothing, so the
  // exit-status table's meaning stands in, as it does for no description.
  if (!o.description.empty() && o.description != "Success.") return o.description;
  if (o.check_mode) return "the configuration check failed";
  const char* meaning = vyr::status::Meaning(o.status);
  return meaning != nullptr ? meaning : "the run failed";
}

// "; verdict in ..., details in ..." for the files that exist for this run.
std::string Where(const VIP_OUTCOME& o) {
  std::string where;
  if (!o.check_log.empty()) where += "; verdict in " + o.check_log;
  if (!o.trace_log.empty()) where += (where.empty() ? "; " : ", ") + ("details in " + o.trace_log);
  return where;
}

}  // namespace

std::string vip_failure_note(const VIP_OUTCOME& o) {
  if (o.status == 0) return "";
  std::string note =
      o.program + ": " + Reason(o) + " (status " + std::to_string(o.status) + Where(o) + ")\n";
  if (o.status == kInvalidOption && !o.check_mode) note += kUsage;
  return note;
}

void vip_tell_terminal(const VIP_OUTCOME& outcome) {
  if (::isatty(STDERR_FILENO) != 1) return;
  const std::string note = vip_failure_note(outcome);
  std::fputs(note.c_str(), stderr);
}
