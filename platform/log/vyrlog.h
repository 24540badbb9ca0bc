// The cluster log library.
//
// One log file per module type: without a path, the log of type "vip" is
// "$VYR_LOG_DIR/vip.log" (default folder /var/log/vyrcluster). Each call of
// log_write appends one line:
//
//   2026-11-22 19:22:01.123 pid=1234 tid=1235 INFO src/vip/entry.cc:120 main: text
//
// with the level names ERROR (1), WARN (2), INFO (4), DETAIL (8) and EVENT
// (32768). A line is kept when its level is not above the level setting;
// events are always kept and also go to the system log with their number.
// Each line is written with one write() on a file opened for appending, so
// lines of many threads and processes never mix. When the file would grow
// past the size setting it is renamed with a ".1" suffix (replacing an older
// one) and a new file is begun.
//
// All calls are safe from any thread. log_write with a null handle does nothing.
#pragma once

#include <cstddef>

inline constexpr int VYR_LOG_ERROR = 1;
inline constexpr int VYR_LOG_WARNING = 2;
inline constexpr int VYR_LOG_INFO = 4;
inline constexpr int VYR_LOG_DETAIL = 8;
inline constexpr int VYR_LOG_EVENT = 32768;

// Opens the log of `type` (at `path` when given) and stores its handle.
// Returns 0, or -1 when the file cannot be opened (the handle is then null).
int log_init(const char* type, void** handle, int level, int size, const char* path);

// Writes one line. `event` is 0 for ordinary lines, the event number for
// level 32768 (the text then follows "[event N] "). An event with a null
// `format` takes its first argument as the text (the subject of the event);
// any other line with a null format has an empty text. A newline or carriage
// return inside the text is written as a blank, so that one call is always
// one line.
void log_write(void* handle, int level, int event, const char* file, int line, const char* func,
               const char* format, ...) __attribute__((format(printf, 7, 8)));

// Closes the log and frees the handle. Returns 0.
int log_term(void* handle);

// The file the handle writes to, or null for a null handle. Valid until
// log_term.
const char* log_path(void* handle);

// The descriptor the handle writes through, or -1 for a null handle: what a
// forked helper that closes everything else it inherited must keep open to
// go on writing this log.
int log_fd(void* handle);
