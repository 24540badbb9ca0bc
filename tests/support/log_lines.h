// Reading back files written by the log library: each line split into the
// fields of its layout
//   2026-11-22 19:22:01.123 pid=1234 tid=1235 INFO src/vip/entry.cc:120 main: text
#pragma once

#include <string>
#include <vector>

namespace vyrtest {

struct LogLine {
  std::string stamp;  // "YYYY-MM-DD HH:MM:SS.mmm"
  long pid = 0, tid = 0;
  std::string level;  // ERROR, WARN, INFO, DETAIL or EVENT; empty for a line of another layout
  std::string file;
  int line = 0;
  std::string func;
  std::string text;  // the whole raw line for a line of another layout
};

// Every line of the file; one of another layout only as its raw `text`.
std::vector<LogLine> ReadLogLines(const std::string& path);

}  // namespace vyrtest
