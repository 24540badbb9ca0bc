#include "support/trace_capture.h"

#include <sstream>

#include "tracersc/tracersc.h"

namespace vyrtest {

TraceCapture::TraceCapture() : path_(dir_ / "vip.log") {
  traceclose();
  traceopen("vip", TRACE_DETAIL, 1 << 30, path_.c_str());
}

TraceCapture::~TraceCapture() { traceclose(); }

bool ParseTraceLine(const std::string& line, TraceLine* out) {
  // date time pid= tid= LEVEL file:line function: text
  std::size_t pos = 0;
  std::string fields[7];
  for (int i = 0; i < 7; ++i) {
    std::size_t end = line.find(' ', pos);
    if (end == std::string::npos) return false;
    fields[i] = line.substr(pos, end - pos);
    pos = end + 1;
  }
  if (fields[6].empty() || fields[6].back() != ':') return false;
  out->level = fields[4];
  out->text = line.substr(pos);
  return true;
}

std::vector<TraceLine> TraceCapture::Lines() const {
  std::vector<TraceLine> lines;
  std::istringstream in(ReadFile(path_));
  std::string line;
  while (std::getline(in, line)) {
    TraceLine parsed;
    if (ParseTraceLine(line, &parsed)) lines.push_back(parsed);
  }
  return lines;
}

std::vector<std::string> TraceCapture::Texts(const std::string& level) const {
  std::vector<std::string> texts;
  for (const TraceLine& line : Lines()) {
    if (line.level == level) texts.push_back(line.text);
  }
  return texts;
}

bool TraceCapture::Contains(const std::string& needle) const {
  for (const TraceLine& line : Lines()) {
    if (line.text.find(needle) != std::string::npos) return true;
  }
  return false;
}

}  // namespace vyrtest
