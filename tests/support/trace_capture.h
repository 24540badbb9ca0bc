// The agent's trace log on a private file for the life of the object, read back.
#pragma once

#include <string>
#include <vector>

#include "support/sh.h"

namespace vyrtest {

class TraceCapture {
 public:
  explicit TraceCapture(int level = 8);  // detail level: everything kept
  ~TraceCapture();

  // The texts of the lines of one level; "LEVEL text" of every line for "".
  std::vector<std::string> Texts(const std::string& level) const;
  // True when some line's text contains `needle`.
  bool Contains(const std::string& needle) const;

 private:
  TempDir dir_;
  std::string path_;
};

}  // namespace vyrtest
