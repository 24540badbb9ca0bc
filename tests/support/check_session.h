// In-process check mode for tests: a configuration file made current in the
// configuration library, and a check log on a private file.
#pragma once

#include <string>
#include <vector>

#include "support/sh.h"

namespace vyrtest {

// Initialises the configuration library and makes `file` its current
// configuration; undoes both when it goes away.
class ConfigUnderTest {
 public:
  explicit ConfigUnderTest(const std::string& file);
  ~ConfigUnderTest();
  ConfigUnderTest(const ConfigUnderTest&) = delete;
  ConfigUnderTest& operator=(const ConfigUnderTest&) = delete;

  // 0 when the file is loaded and current, else the library's code.
  int status() const { return status_; }

 private:
  void* handle_ = nullptr;
  int status_ = 0;
};

// A check log on a private file, opened at construction.
class CheckLogFile {
 public:
  explicit CheckLogFile(const std::string& rscname = "t");
  ~CheckLogFile();
  CheckLogFile(const CheckLogFile&) = delete;
  CheckLogFile& operator=(const CheckLogFile&) = delete;

  // Closes the log (once) and returns every line of the file.
  std::vector<std::string> Close();
  // Closes the log and returns the lines between the start and end lines.
  std::vector<std::string> Body();

 private:
  TempDir dir_;
  std::string rscname_;
  std::string path_;
  bool open_ = false;
};

std::vector<std::string> SplitLines(const std::string& text);

}  // namespace vyrtest
