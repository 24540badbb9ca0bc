#include "chkutil/chkutil.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "tracersc/tracersc.h"
#include "vyrxml.h"

namespace {

constexpr const char* kServerPath = "/root/server";

struct FreeDeleter {
  void operator()(char* p) const { std::free(p); }
};
using ServerNames = std::unique_ptr<char, FreeDeleter>;

// The value buffer handed to the check functions; aligned so that an
// integer value can be read through it.
struct ValueBuffer {
  alignas(int) char bytes[CHK_VALUE_LEN];
};

// The cluster's servers, each a NUL-padded 256-byte entry.
struct Servers {
  ServerNames names;
  int count = 0;
  const char* name(int i) const { return names.get() + i * VYR_XML_ENUM_ENTRY; }
};

// Learns the servers. CHK_RESULT_GOOD, or CHK_RESULT_INCOMPLETE after tracing why.
int EnumServers(Servers* servers) {
  int size = 0;
  int ret = xmllib_enum_value(kServerPath, nullptr, &size);
  if (ret == VYR_XMLERR_NOTEXIST_PATH) {
    TRACE(TRACE_ERROR, "There is no server.");
    return CHK_RESULT_GOOD;
  }
  if (ret != VYR_XMLERR_SUCCESS && ret != VYR_XMLERR_NOTENOUGH_SIZE) {
    TRACE(TRACE_ERROR, "xmllib_enum_value(%s) failed. (ret=%d)", kServerPath, ret);
    return CHK_RESULT_INCOMPLETE;
  }
  int count = size / VYR_XML_ENUM_ENTRY;
  if (count <= 0) return CHK_RESULT_GOOD;
  int bytes = count * VYR_XML_ENUM_ENTRY;
  ServerNames names(static_cast<char*>(std::calloc(static_cast<std::size_t>(bytes), 1)));
  if (!names) {
    TRACE(TRACE_ERROR, "malloc(%d) (*servers) failed. (errno=%d)", bytes, errno);
    return CHK_RESULT_INCOMPLETE;
  }
  ret = xmllib_enum_value(kServerPath, names.get(), &bytes);
  if (ret != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_ERROR, "xmllib_enum_value(%s) failed. (ret=%d)", kServerPath, ret);
    return CHK_RESULT_INCOMPLETE;
  }
  // The entries are NUL-padded; make sure the last one ends inside its slot.
  names.get()[count * VYR_XML_ENUM_ENTRY - 1] = '\0';
  servers->names = std::move(names);
  servers->count = count;
  return CHK_RESULT_GOOD;
}

// Reads one value of `prop` at `path` into a cleared buffer. The library's
// result.
int ReadValue(const char* path, const property& prop, ValueBuffer* value) {
  std::memset(value->bytes, 0, sizeof value->bytes);
  int size = prop.size;
  if (size < 0 || size > CHK_VALUE_LEN) size = CHK_VALUE_LEN;
  return xmllib_get_value(path, prop.type, value->bytes, &size);
}

bool BuildPath(char* out, const char* tmpl, const char* rscname, const char* server) {
  const char* args[] = {rscname, server};
  if (chk_fill_path(out, CHK_VALUE_LEN, tmpl, args, server ? 2 : 1)) return true;
  TRACE(TRACE_ERROR, "Path %s cannot be formed for %s.", tmpl ? tmpl : "(null)", rscname);
  return false;
}

int Apply(check_func func, ValueBuffer* value) { return func ? func(value->bytes) : 0; }

// Common value, then every server's own value. Findings are OR-ed into
// *findings; CHK_RESULT_INCOMPLETE when a read failed.
int CheckOneProperty(const char* rscname, const property& prop, const Servers& servers,
                     int* findings) {
  char path[CHK_VALUE_LEN];
  ValueBuffer value;
  if (!BuildPath(path, prop.commonpath, rscname, nullptr)) return CHK_RESULT_INCOMPLETE;
  int ret = ReadValue(path, prop, &value);
  if (ret != VYR_XMLERR_SUCCESS) {
    TRACE(TRACE_ERROR, "xmllib_get_value(%s, %d) failed. (ret=%d)", path, prop.type, ret);
    return CHK_RESULT_INCOMPLETE;
  }
  *findings |= Apply(prop.commoncheckfunc, &value);
  if (prop.specialpath == nullptr) return CHK_RESULT_GOOD;

  for (int i = 0; i < servers.count; ++i) {
    if (!BuildPath(path, prop.specialpath, rscname, servers.name(i))) return CHK_RESULT_INCOMPLETE;
    ret = ReadValue(path, prop, &value);
    if (ret == VYR_XMLERR_SUCCESS) {
      *findings |= Apply(prop.specialcheckfunc, &value);
    } else if (ret == VYR_XMLERR_NOTEXIST_PATH) {
      // In a one-server cluster the common value serves; with several, a
      // required property must be set for each server.
      if (servers.count > 1 && prop.required == 1) {
        *findings |= Apply(prop.specialcheckfunc, &value);
      }
    } else {
      TRACE(TRACE_ERROR, "xmllib_get_value(%s, %d) failed. (ret=%d)", path, prop.type, ret);
      return CHK_RESULT_INCOMPLETE;
    }
  }
  return CHK_RESULT_GOOD;
}

}  // namespace

bool chk_fill_path(char* out, int outlen, const char* tmpl, const char* const* args, int nargs) {
  if (out == nullptr || outlen <= 0) return false;
  out[0] = '\0';
  if (tmpl == nullptr) return false;
  const std::size_t cap = static_cast<std::size_t>(outlen);
  std::size_t len = 0;
  int used = 0;
  for (const char* p = tmpl; *p != '\0'; ++p) {
    const char* piece = p;
    std::size_t n = 1;
    if (*p == '%') {
      // Only "%s" is a conversion here; anything else is a broken template.
      if (p[1] != 's' || used >= nargs) {
        out[0] = '\0';
        return false;
      }
      piece = args[used] ? args[used] : "";
      n = std::strlen(piece);
      ++used;
      ++p;
    }
    if (len + n >= cap) {
      out[0] = '\0';
      return false;
    }
    std::memcpy(out + len, piece, n);
    len += n;
  }
  out[len] = '\0';
  if (used != nargs) {
    out[0] = '\0';
    return false;
  }
  return true;
}

int check_properties(const char* rscname, const struct property* properties, int length) {
  TRACE(TRACE_DETAIL, "check_properties()  ENTRY...");
  Servers servers;
  int ret = EnumServers(&servers);
  int findings = 0;
  for (int i = 0; ret == CHK_RESULT_GOOD && i < length; ++i) {
    ret = CheckOneProperty(rscname ? rscname : "", properties[i], servers, &findings);
  }
  if (ret == CHK_RESULT_GOOD && findings != 0) ret = CHK_RESULT_FINDING;
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
