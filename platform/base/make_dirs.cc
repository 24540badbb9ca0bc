#include "make_dirs.h"

#include <sys/stat.h>

#include <cerrno>

namespace vyr {

int MakeDirs(const std::string& dir) {
  for (std::size_t pos = dir.find('/', 1);; pos = dir.find('/', pos + 1)) {
    const std::string part = dir.substr(0, pos);
    if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return errno;
    if (pos == std::string::npos) return 0;
  }
}

}  // namespace vyr
