#include "support/trace_capture.h"

#include <algorithm>

#include "support/log_lines.h"
#include "tracersc/tracersc.h"

namespace vyrtest {

TraceCapture::TraceCapture(int level) : path_(dir_ / "vip.log") {
  traceclose();
  traceopen("vip", level, 1 << 30, path_.c_str());
}

TraceCapture::~TraceCapture() { traceclose(); }

std::vector<std::string> TraceCapture::Texts(const std::string& level) const {
  std::vector<std::string> texts;
  for (const LogLine& l : ReadLogLines(path_)) {
    if (level.empty() || l.level == level)
      texts.push_back(level.empty() ? l.level + " " + l.text : l.text);
  }
  return texts;
}

bool TraceCapture::Contains(const std::string& needle) const {
  return std::ranges::any_of(ReadLogLines(path_), [&needle](const LogLine& l) {
    return l.text.find(needle) != std::string::npos;
  });
}

}  // namespace vyrtest
