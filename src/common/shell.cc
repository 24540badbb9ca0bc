#include "common/shell.h"

namespace vyr {

std::string ShellQuote(std::string_view word) {
  std::string quoted;
  quoted.reserve(word.size() + 2);
  quoted.push_back('\'');
  for (char c : word) {
    if (c == '\'') {
      quoted.append("'\\''");
    } else {
      quoted.push_back(c);
    }
  }
  quoted.push_back('\'');
  return quoted;
}

}  // namespace vyr
