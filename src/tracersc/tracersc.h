// The agent's trace log, over the cluster log library.
//
// traceopen/traceclose/tracetell run on the main thread while no worker
// exists; every other entry point may be called from any thread (each builds
// its message in a buffer of its own and the log library takes concurrent
// writes). Before the log is open nothing is written.
#pragma once

inline constexpr int TRACE_ERROR = 1;
inline constexpr int TRACE_WARNING = 2;
inline constexpr int TRACE_INFO = 4;
inline constexpr int TRACE_DETAIL = 8;
inline constexpr int TRACE_EVENT = 32768;

void traceopen(const char* type, int level, int size, const char* path);
void traceclose(void);
// The file of the open trace log, or null while it is not open.
const char* tracefile(void);
// The descriptor of the open trace log, or -1 while it is not open.
int tracefd(void);
// Keeps at most 8 characters of `name` as the prefix of later lines.
void tracetell(const char* name);

void trace(int level, const char* file, int line, const char* func, const char* format, ...)
    __attribute__((format(printf, 5, 6)));
void trace2(int level, const char* file, int line, const char* func, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// Handed straight to the log library: no prefix, no local formatting.
void tracemess(int level, int event, const char* file, int line, const char* func,
               const char* format, const char* arg);
void tracemess2(int level, int event, const char* file, int line, const char* func,
                const char* format, const char* arg1, const char* arg2);
void tracemess3(int level, int event, const char* file, int line, const char* func,
                const char* format, const char* arg1, const char* arg2, const char* arg3);
void tracemess4(int level, int event, const char* file, int line, const char* func,
                const char* format, const char* arg1, const char* arg2, int arg3);

// Report the result of a call: level 1 when ret is non-zero, 8 when it is 0.
void tracefunc(int ret, const char* file, int line, const char* func, const char* format, ...)
    __attribute__((format(printf, 5, 6)));
void tracesys(int ret, int err, const char* file, int line, const char* func, const char* format,
              ...) __attribute__((format(printf, 6, 7)));
void tracexml(int ret, const char* file, int line, const char* func, const char* format, ...)
    __attribute__((format(printf, 5, 6)));
void traceshmrm(int ret, const char* file, int line, const char* func, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// Error names of the IPC and configuration libraries ("??" when unknown);
// `errstr` holds at least 128 bytes.
void makeerrstr_shmrm(int ret, char* errstr);
void makeerrstr_xml(int ret, char* errstr);

// A second, independent log.
void traceopen_ex(const char* type, int level, int size, const char* path);
void traceclose_ex(void);
void trace_ex(int level, const char* file, int line, const char* func, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// The usual call: file, line and function of the caller.
#define TRACE(level, ...) trace((level), __FILE__, __LINE__, __func__, __VA_ARGS__)
