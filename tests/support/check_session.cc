#include "support/check_session.h"

#include <sstream>

#include "chklog/chklog.h"
#include "vyrxml.h"

namespace vyrtest {

ConfigUnderTest::ConfigUnderTest(const std::string& file) {
  status_ = xmllib_init("vip");
  if (status_ == 0) status_ = xmllib_load_pathconfig(file.c_str(), &handle_);
  if (status_ == 0) status_ = xmllib_change_config(handle_);
}

ConfigUnderTest::~ConfigUnderTest() {
  if (handle_ != nullptr) xmllib_unload_pathconfig(handle_);
  xmllib_term();
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

CheckLogFile::CheckLogFile(const std::string& rscname)
    : rscname_(rscname), path_(dir_ / "check.log") {
  open_ = chk_log_init("vip", rscname_.c_str(), path_.c_str()) == 0;
}

CheckLogFile::~CheckLogFile() { Close(); }

std::vector<std::string> CheckLogFile::Close() {
  if (open_) {
    chk_log_term("vip", rscname_.c_str());
    open_ = false;
  }
  return SplitLines(ReadFile(path_));
}

std::vector<std::string> CheckLogFile::Body() {
  std::vector<std::string> lines = Close();
  if (lines.size() < 2) return {};
  return std::vector<std::string>(lines.begin() + 1, lines.end() - 1);
}

}  // namespace vyrtest
