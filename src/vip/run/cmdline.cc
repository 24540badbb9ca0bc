#include "vip/run/cmdline.h"

#include <cstring>

#include "common/text.h"
#include "tracersc/tracersc.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"

namespace {

int Invalid() { return vyr::Fail(vyr::status::kInvalidOption, "Option was invalid."); }

struct ModeWord {
  const char* word;
  int act;
  bool manual;
  bool dynamic;
};

constexpr ModeWord kModes[] = {
    {"--active", 0, false, false}, {"--deactive", 1, false, false}, {"--add", 0, true, false},
    {"--del", 1, true, false},     {"--dactive", 0, false, true},   {"--ddeactive", 1, false, true},
};

struct ValueOption {
  const char* name;
  const char* missing;  // traced when the value is missing
};

constexpr ValueOption kOptions[] = {
    {"-r", "Invalid option. (-r ?)"},
    {"-g", "Invalid option. (-g ?)"},
    {"-a", "Invalid option. (-a ?)"},
    {"-i", "Invalid option. (-i ?)"},
};

const ValueOption* FindOption(const char* arg) {
  for (const ValueOption& option : kOptions) {
    if (vyr::EqualsNoCase(arg, option.name)) return &option;
  }
  return nullptr;
}

// The field an option's value goes to.
struct Field {
  char* buf;
  std::size_t size;
};

Field FieldOf(const ValueOption& option, VIP_INFO* info, char* addrbuf, std::size_t addrsize) {
  switch (option.name[1]) {
    case 'r':
      return {info->rscname, sizeof info->rscname};
    case 'g':
      return {info->grpname, sizeof info->grpname};
    case 'a':
      return {addrbuf, addrsize};
    default:
      return {info->ifname, sizeof info->ifname};
  }
}

}  // namespace

int vip_parse_mode(const char* word) {
  for (const ModeWord& mode : kModes) {
    if (!vyr::EqualsNoCase(word, mode.word)) continue;
    actflag = mode.act;
    if (mode.manual) ++nomuseflag;
    if (mode.dynamic) dynamicflag = 1;
    return 0;
  }
  TRACE(TRACE_ERROR, "Invalid option.");
  return Invalid();
}

int vip_parse_options(int argc, char** argv, VIP_INFO* pvipinfo, char* addrbuf,
                      std::size_t addrsize) {
  for (int i = 2; i < argc; ++i) {
    const ValueOption* option = FindOption(argv[i]);
    if (option == nullptr) {
      TRACE(TRACE_WARNING, "Invalid option. (argv[i] : %s)", argv[i]);
      continue;
    }
    const char* value = (i + 1 < argc) ? argv[i + 1] : nullptr;
    if (value == nullptr || value[0] == '-') {
      TRACE(TRACE_ERROR, "%s", option->missing);
      return Invalid();
    }
    const Field field = FieldOf(*option, pvipinfo, addrbuf, addrsize);
    const std::size_t len = std::strlen(value);
    if (len >= field.size) {
      // Cutting a name or an address would make the run act on something
      // nobody asked for.
      TRACE(TRACE_ERROR, "Invalid option. (%s : value of %zu characters, at most %zu)",
            option->name, len, field.size - 1);
      return Invalid();
    }
    std::memcpy(field.buf, value, len + 1);
    ++i;
  }
  return 0;
}
