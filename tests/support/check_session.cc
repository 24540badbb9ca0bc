#include "support/check_session.h"

#include <gtest/gtest.h>

#include <sstream>

#include "chklog/chklog.h"
#include "support/sh.h"

namespace vyrtest {

std::pair<int, std::vector<std::string>> CheckLogged(const std::string& rscname,
                                                     const std::function<int()>& check) {
  TempDir dir;
  const std::string path = dir / "check.log";
  EXPECT_EQ(chk_log_init("vip", rscname.c_str(), path.c_str()), 0) << path;
  const int ret = check();
  chk_log_term("vip", rscname.c_str());
  std::vector<std::string> lines;
  std::istringstream in(ReadFile(path));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  if (lines.size() >= 2) lines = {lines.begin() + 1, lines.end() - 1};
  return {ret, lines};
}

}  // namespace vyrtest
