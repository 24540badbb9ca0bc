// The property checker of configuration check mode.
//
// A resource type describes its checkable settings as a table of `property`
// rows; check_properties reads every row's common value and each server's
// own value from the current configuration and hands them to the row's check
// functions, which write their findings to the check log. check_numeric_values
// judges integer parameters against the ranges the loaded policy declares
// under /root/resource/fip/param<index>/.
//
// The caller has made the configuration under check current and loaded the
// resource type's policy. Main thread only.
#pragma once

// Judges one value: a NUL-terminated text for type 0, an int for type 1.
// 0 when the value is good, 1 when a finding was written to the check log.
typedef int (*check_func)(void* value);

inline constexpr int CHK_PROP_TEXT = 0;
inline constexpr int CHK_PROP_INT = 1;
inline constexpr int CHK_VALUE_LEN = 1024;  // largest `size` of a property

// Results of both facilities.
inline constexpr int CHK_RESULT_GOOD = 0;
inline constexpr int CHK_RESULT_FINDING = 1;
inline constexpr int CHK_RESULT_INCOMPLETE = 99;

struct property {
  const char* name;         // display name; the check functions name it themselves
  int type;                 // CHK_PROP_TEXT or CHK_PROP_INT
  int size;                 // bytes requested for the value, at most CHK_VALUE_LEN
  const char* commonpath;   // path with one %s: the resource name
  const char* specialpath;  // path with %s resource, %s server; null: none
  check_func commoncheckfunc;
  check_func specialcheckfunc;
  int required;  // 1: with several servers, each must carry its own value
};

struct numeric_param {
  const char* name;   // printed in the out-of-range line
  const char* path;   // path with one %s: the resource name
  const char* index;  // key of the range in the policy (param<index>); null: 0 to 1
};

// 0 every value passed, 1 some check function found a fault, 99 the walk
// could not complete (a read failed or memory ran out; findings written
// so far stay in the check log).
int check_properties(const char* rscname, const struct property* properties, int length);

// 0, 1 or 99 as above. Out-of-range lines carry the number `errorid`.
int check_numeric_values(const char* rscname, const struct numeric_param* params, int length,
                         int errorid);

// Fills the "%s" of a path template with `args` in order. False when the
// template has another conversion, a different number of "%s", or the
// result does not fit `outlen` bytes; `out` is then left empty.
bool chk_fill_path(char* out, int outlen, const char* tmpl, const char* const* args, int nargs);
