// The check log of configuration check mode.
//
// One check run appends one block to the check log file: a start line, any
// number of message lines and an end line. When the file cannot be opened or
// a write fails, the line goes to the trace log at information level instead,
// so that no verdict is lost silently. Main thread only: check mode starts no
// threads.
#pragma once

// One row of the check message table: the number printed in the line and
// the printf-style text of the message.
struct logmsg {
  int index;
  const char* msg;
};

// Rows of logtbl. The printed number is the row's `index`, not its position.
enum logindex {
  CHK_ID_SUCCESS = 0,
  CHK_ID_ARG_ERR,
  CHK_ID_EMPTY_ERR,
  CHK_ID_RANGE_ERR,
  CHK_ID_IPFOMAT_ERR,
  CHK_ID_IPADDR_ERR,
  CHK_ID_NIC_ERR,
  CHK_ID_MASK_ERR,
  CHK_ID_PROT_EMPTY_ERR,
  CHK_ID_PROT_TOP_ERR,
  CHK_ID_PROT_TAIL_ERR,
  CHK_ID_PROT_ERR,
  CHK_ID_REQUIRED_ERR,
  CHK_ID_NUMBER_ERR,
  CHK_ID_COMMENT_PATH_ERR,
  CHK_ID_COMMENT_RANGE_ERR,
  CHK_ID_INTERNAL_ERR,
  CHK_ID_COUNT
};

// The message texts, as literals so that CHK_LOG below gets its arguments
// checked against them at compile time.
#define CHK_ID_SUCCESS_MSG "Success in a composition check."
#define CHK_ID_ARG_ERR_MSG "Invalid argument."
#define CHK_ID_EMPTY_ERR_MSG "Parameter %s is empty."
#define CHK_ID_RANGE_ERR_MSG "Value of %s is out of range. (value=%d)"
#define CHK_ID_IPFOMAT_ERR_MSG "Format of VIP address is invalid. (value=%s)"
#define CHK_ID_IPADDR_ERR_MSG "IP address is invalid. (value=%s)"
#define CHK_ID_NIC_ERR_MSG "NIC alias is invalid. (value=%s)"
#define CHK_ID_MASK_ERR_MSG "Subnet mask is invalid. (value=%s)"
#define CHK_ID_PROT_EMPTY_ERR_MSG "Routing Protocol is not set."
#define CHK_ID_PROT_TOP_ERR_MSG "Remove top blank. (value=%s)"
#define CHK_ID_PROT_TAIL_ERR_MSG "Remove tail blank. (value=%s)"
#define CHK_ID_PROT_ERR_MSG "Routing Protocol is invalid. (value=%s)"
#define CHK_ID_REQUIRED_ERR_MSG "Parameter %s is required for each server."
#define CHK_ID_NUMBER_ERR_MSG "Value of %s is not a number. (value=%s)"
#define CHK_ID_COMMENT_PATH_ERR_MSG "Path of Comment does not exist."
#define CHK_ID_COMMENT_RANGE_ERR_MSG "Length of Comment is out of range."
#define CHK_ID_INTERNAL_ERR_MSG "Internal error occurred."

extern const struct logmsg logtbl[CHK_ID_COUNT];

// Level of the success line (letter I); every other level prints E.
inline constexpr int CHK_LEVEL_INFO = 4;
inline constexpr int CHK_LEVEL_ERROR = 1;

// Opens `rdrctfile` for appending (created with mode 0644 when missing) and
// writes the start line. 0 when the file was opened, else 1; the start line
// is written, or traced, either way.
int chk_log_init(const char* type, const char* rscname, const char* rdrctfile);
// Writes "L [NNN] message". 0 when the line reached the check log, else 1.
int chk_log_write(int level, int index, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
// Writes the end line and closes the file. The end line's result.
int chk_log_term(const char* type, const char* rscname);
// The start and end lines alone. 0 when the line reached the check log.
int chk_log_start(const char* type, const char* rscname);
int chk_log_end(const char* type, const char* rscname);

// Writes the row `id` of logtbl at `level` with the arguments its text names:
//   CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, "IP address");
#define CHK_LOG(level, id, ...) \
  chk_log_write((level), logtbl[id].index, id##_MSG __VA_OPT__(, ) __VA_ARGS__)
