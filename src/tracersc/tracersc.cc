#include "tracersc/tracersc.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "vyrlog.h"

namespace {

constexpr std::size_t kMessageMax = 1024;
constexpr std::size_t kErrstrMax = 128;

int traceinit = 0;
void* loghandle = nullptr;
int traceinit_ex = 0;
void* loghandle_ex = nullptr;
char rscname[32];

// Formats the caller's message, cut to 1023 characters.
void FormatMessage(char* out, const char* format, va_list ap) {
  std::vsnprintf(out, kMessageMax, format, ap);
}

void WritePlain(void* handle, int level, const char* file, int line, const char* func,
                const char* message) {
  if (rscname[0] == '\0') {
    log_write(handle, level, 0, file, line, func, "%s", message);
  } else {
    log_write(handle, level, 0, file, line, func, "%-8s: %s", rscname, message);
  }
}

void OpenOn(void** handle, int* count, const char* type, int level, int size, const char* path) {
  if (*count == 0) log_init(type, handle, level, size, path);
  ++*count;
}

void CloseOn(void** handle, int* count) {
  if (*count == 0) return;
  log_term(*handle);
  *handle = nullptr;
  *count = 0;
}

// The shared body of the four result-reporting entry points. `detail`
// names the failure (already formatted by the caller of this helper).
void WriteResult(int ret, const char* file, int line, const char* func, const char* message,
                 const char* detail) {
  if (loghandle == nullptr) return;
  if (ret == 0) {
    if (rscname[0] == '\0') {
      log_write(loghandle, 8, 0, file, line, func, "  %s success.", message);
    } else {
      log_write(loghandle, 8, 0, file, line, func, "%-8s:   %s success.", rscname, message);
    }
    return;
  }
  if (rscname[0] == '\0') {
    log_write(loghandle, 1, 0, file, line, func, "  %s failed. (%s)", message, detail);
  } else {
    log_write(loghandle, 1, 0, file, line, func, "%-8s:   %s failed. (%s)", rscname, message,
              detail);
  }
}

void MakeErrName(const char* const* names, int first, int count, int ret, char* errstr) {
  if (errstr == nullptr) return;
  const char* name = (ret >= first && ret < first + count) ? names[ret - first] : "??";
  std::snprintf(errstr, kErrstrMax, "%s", name);
}

}  // namespace

void traceopen(const char* type, int level, int size, const char* path) {
  OpenOn(&loghandle, &traceinit, type, level, size, path);
  rscname[0] = '\0';
}

void traceclose(void) { CloseOn(&loghandle, &traceinit); }

const char* tracefile(void) { return log_path(loghandle); }

int tracefd(void) { return log_fd(loghandle); }

void tracetell(const char* name) { std::snprintf(rscname, 9, "%s", name ? name : ""); }

void trace(int level, const char* file, int line, const char* func, const char* format, ...) {
  if (loghandle == nullptr || format == nullptr) return;
  char message[kMessageMax];
  va_list ap;
  va_start(ap, format);
  FormatMessage(message, format, ap);
  va_end(ap);
  WritePlain(loghandle, level, file, line, func, message);
}

void trace2(int level, const char* file, int line, const char* func, const char* format, ...) {
  if (loghandle == nullptr || format == nullptr) return;
  char message[kMessageMax];
  va_list ap;
  va_start(ap, format);
  FormatMessage(message, format, ap);
  va_end(ap);
  if (rscname[0] == '\0') {
    log_write(loghandle, level, 0, file, line, func, "  %s", message);
  } else {
    log_write(loghandle, level, 0, file, line, func, "%-8s:   %s", rscname, message);
  }
}

// The tracemess family hands the caller's format to the log library as it
// is; these are the only places where a format is not a literal.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
void tracemess(int level, int event, const char* file, int line, const char* func,
               const char* format, const char* arg) {
  log_write(loghandle, level, event, file, line, func, format, arg);
}

void tracemess2(int level, int event, const char* file, int line, const char* func,
                const char* format, const char* arg1, const char* arg2) {
  log_write(loghandle, level, event, file, line, func, format, arg1, arg2);
}

void tracemess3(int level, int event, const char* file, int line, const char* func,
                const char* format, const char* arg1, const char* arg2, const char* arg3) {
  log_write(loghandle, level, event, file, line, func, format, arg1, arg2, arg3);
}

void tracemess4(int level, int event, const char* file, int line, const char* func,
                const char* format, const char* arg1, const char* arg2, int arg3) {
  log_write(loghandle, level, event, file, line, func, format, arg1, arg2, arg3);
}
#pragma GCC diagnostic pop

void tracefunc(int ret, const char* file, int line, const char* func, const char* format, ...) {
  if (format == nullptr) return;
  char message[kMessageMax];
  va_list ap;
  va_start(ap, format);
  FormatMessage(message, format, ap);
  va_end(ap);
  char detail[64];
  std::snprintf(detail, sizeof detail, "%#x", static_cast<unsigned>(ret));
  WriteResult(ret, file, line, func, message, detail);
}

void tracesys(int ret, int err, const char* file, int line, const char* func, const char* format,
              ...) {
  if (format == nullptr) return;
  char message[kMessageMax];
  va_list ap;
  va_start(ap, format);
  FormatMessage(message, format, ap);
  va_end(ap);
  char detail[64];
  std::snprintf(detail, sizeof detail, "ret=%d,errno=%d", ret, err);
  WriteResult(ret, file, line, func, message, detail);
}

namespace {
void TraceLibResult(void (*namer)(int, char*), int ret, const char* file, int line,
                    const char* func, const char* message) {
  char name[kErrstrMax];
  namer(ret, name);
  char detail[kErrstrMax + 32];
  std::snprintf(detail, sizeof detail, "%#x %s", static_cast<unsigned>(ret), name);
  WriteResult(ret, file, line, func, message, detail);
}
}  // namespace

void tracexml(int ret, const char* file, int line, const char* func, const char* format, ...) {
  if (format == nullptr) return;
  char message[kMessageMax];
  va_list ap;
  va_start(ap, format);
  FormatMessage(message, format, ap);
  va_end(ap);
  TraceLibResult(makeerrstr_xml, ret, file, line, func, message);
}

void traceshmrm(int ret, const char* file, int line, const char* func, const char* format, ...) {
  if (format == nullptr) return;
  char message[kMessageMax];
  va_list ap;
  va_start(ap, format);
  FormatMessage(message, format, ap);
  va_end(ap);
  TraceLibResult(makeerrstr_shmrm, ret, file, line, func, message);
}

void makeerrstr_shmrm(int ret, char* errstr) {
  static const char* const kNames[] = {
      "SHMRM_ERR_NOTINIT",  "SHMRM_ERR_INVALIDPARAM", "SHMRM_ERR_NOTFOUND", "SHMRM_ERR_NOTENOUGH",
      "SHMRM_ERR_XMLINIT",  "SHMRM_ERR_FTOK",         "SHMRM_ERR_SHMGET",   "SHMRM_ERR_SHMAT",
      "SHMRM_ERR_SHMCTL",   "SHMRM_ERR_MAXGRP",       "SHMRM_ERR_MAXRSC",   "SHMRM_ERR_MAXMON",
      "SHMRM_ERR_LOADINFO", "SHMRM_ERR_LOADCONF"};
  MakeErrName(kNames, 2, static_cast<int>(sizeof kNames / sizeof kNames[0]), ret, errstr);
}

void makeerrstr_xml(int ret, char* errstr) {
  static const char* const kNames[] = {
      "VYR_XMLERR_SUCCESS",          "VYR_XMLERR_NOT_INIT",      "VYR_XMLERR_NOT_LOAD",
      "VYR_XMLERR_NOTENOUGH_SIZE",   "VYR_XMLERR_NOTEXIST_PATH", "VYR_XMLERR_NOTEXIST_VALUE",
      "VYR_XMLERR_INVALID_PATH",     "VYR_XMLERR_INVALID_XML",   "VYR_XMLERR_INVALID_HANDLE",
      "VYR_XMLERR_INVALID_CONTENTS", "VYR_XMLERR_OTHER"};
  MakeErrName(kNames, 0, static_cast<int>(sizeof kNames / sizeof kNames[0]), ret, errstr);
}

void traceopen_ex(const char* type, int level, int size, const char* path) {
  OpenOn(&loghandle_ex, &traceinit_ex, type, level, size, path);
}

void traceclose_ex(void) { CloseOn(&loghandle_ex, &traceinit_ex); }

void trace_ex(int level, const char* file, int line, const char* func, const char* format, ...) {
  if (loghandle_ex == nullptr || format == nullptr) return;
  char message[kMessageMax];
  va_list ap;
  va_start(ap, format);
  FormatMessage(message, format, ap);
  va_end(ap);
  WritePlain(loghandle_ex, level, file, line, func, message);
}
