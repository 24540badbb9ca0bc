#include "support/log_lines.h"

#include <regex>
#include <sstream>

#include "support/sh.h"

namespace vyrtest {

bool ParseLogLine(const std::string& line, LogLine* out) {
  static const std::regex kLayout(
      R"((\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) pid=(\d+) tid=(\d+) )"
      R"((ERROR|WARN|INFO|DETAIL|EVENT) (\S+):(\d+) ([^\n]+?): ([^\n]*))");
  std::smatch m;
  if (!std::regex_match(line, m, kLayout)) return false;
  *out = {m[1], std::stol(m[2]), std::stol(m[3]), m[4], m[5], std::stoi(m[6]), m[7], m[8]};
  return true;
}

std::vector<LogLine> ReadLogLines(const std::string& path) {
  std::vector<LogLine> lines;
  std::istringstream in(ReadFile(path));
  for (std::string raw; std::getline(in, raw);) {
    LogLine& parsed = lines.emplace_back();
    if (!ParseLogLine(raw, &parsed)) parsed.text = raw;
  }
  return lines;
}

std::vector<std::string> LogTexts(const std::string& path) {
  std::vector<std::string> texts;
  for (const LogLine& l : ReadLogLines(path)) texts.push_back(l.text);
  return texts;
}

}  // namespace vyrtest
