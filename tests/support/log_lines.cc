#include "support/log_lines.h"

// A known false positive of GCC 12 with the sanitizers inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <regex>
#include <sstream>

#include "support/sh.h"

namespace vyrtest {

std::vector<LogLine> ReadLogLines(const std::string& path) {
  static const std::regex kLayout(
      R"((\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) pid=(\d+) tid=(\d+) )"
      R"((ERROR|WARN|INFO|DETAIL|EVENT) (\S+):(\d+) ([^\n]+?): ([^\n]*))");
  std::vector<LogLine> lines;
  std::istringstream in(ReadFile(path));
  for (std::string raw; std::getline(in, raw);) {
    if (std::smatch m; std::regex_match(raw, m, kLayout)) {
      lines.push_back(
          {m[1], std::stol(m[2]), std::stol(m[3]), m[4], m[5], std::stoi(m[6]), m[7], m[8]});
    } else {
      lines.emplace_back().text = raw;
    }
  }
  return lines;
}

}  // namespace vyrtest
