#include "support/log_lines.h"

#include <regex>
#include <sstream>

#include "support/sh.h"

namespace vyrtest {

bool ParseLogLine(const std::string& line, LogLine* out) {
  static const std::regex kLayout(
      R"(^(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3}) pid=(\d+) tid=(\d+) )"
      R"((ERROR|WARN|INFO|DETAIL|EVENT) (\S+):(\d+) (\S+): (.*)$)");
  std::smatch m;
  if (!std::regex_match(line, m, kLayout)) return false;
  out->stamp = m[1];
  out->pid = std::stol(m[2]);
  out->tid = std::stol(m[3]);
  out->level = m[4];
  out->file = m[5];
  out->line = std::stoi(m[6]);
  out->func = m[7];
  out->text = m[8];
  return true;
}

std::vector<LogLine> ReadLogLines(const std::string& path) {
  std::vector<LogLine> lines;
  std::istringstream in(ReadFile(path));
  std::string raw;
  while (std::getline(in, raw)) {
    LogLine parsed;
    if (!ParseLogLine(raw, &parsed)) {
      parsed = LogLine{};
      parsed.text = raw;
    }
    lines.push_back(parsed);
  }
  return lines;
}

std::vector<std::string> LogTexts(const std::string& path) {
  std::vector<std::string> texts;
  for (const LogLine& l : ReadLogLines(path)) texts.push_back(l.text);
  return texts;
}

}  // namespace vyrtest
