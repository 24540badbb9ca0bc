#include "support/trace_capture.h"

#include "support/log_lines.h"
#include "tracersc/tracersc.h"

namespace vyrtest {

TraceCapture::TraceCapture(int level) : path_(dir_ / "vip.log") {
  traceclose();
  traceopen("vip", level, 1 << 30, path_.c_str());
}

TraceCapture::~TraceCapture() { traceclose(); }

bool ParseTraceLine(const std::string& line, TraceLine* out) {
  LogLine parsed;
  if (!ParseLogLine(line, &parsed)) return false;
  *out = {parsed.level, parsed.text};
  return true;
}

std::vector<std::string> TraceCapture::Texts(const std::string& level) const {
  std::vector<std::string> texts;
  for (const LogLine& l : ReadLogLines(path_)) {
    if (level.empty()) texts.push_back(l.level + " " + l.text);
    if (!level.empty() && l.level == level) texts.push_back(l.text);
  }
  return texts;
}

bool TraceCapture::Contains(const std::string& needle) const {
  for (const std::string& text : LogTexts(path_)) {
    if (text.find(needle) != std::string::npos) return true;
  }
  return false;
}

}  // namespace vyrtest
