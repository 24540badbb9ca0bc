// Opens the agent's trace log on a private file for the life of the object
// and reads back what was written, so that tests can assert trace lines.
#pragma once

#include <string>
#include <vector>

#include "support/sh.h"

namespace vyrtest {

struct TraceLine {
  std::string level;  // ERROR, WARN, INFO, DETAIL or EVENT
  std::string text;   // what follows "function: "
};

class TraceCapture {
 public:
  // Opens the trace log at detail level (everything kept).
  TraceCapture();
  // Closes it again.
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  const std::string& path() const { return path_; }
  // Every line written so far, in order.
  std::vector<TraceLine> Lines() const;
  // The texts of the lines of one level.
  std::vector<std::string> Texts(const std::string& level) const;
  // True when some line's text contains `needle`.
  bool Contains(const std::string& needle) const;

 private:
  TempDir dir_;
  std::string path_;
};

// Parses a log library line; false when it does not have the library's layout.
bool ParseTraceLine(const std::string& line, TraceLine* out);

}  // namespace vyrtest
