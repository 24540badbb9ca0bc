// Check runs inside the test process, with the check log on a private file.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace vyrtest {

// Runs `check` between opening and closing a check log for `rscname`; its
// result and the log's lines between the start and end lines.
std::pair<int, std::vector<std::string>> CheckLogged(const std::string& rscname,
                                                     const std::function<int()>& check);

}  // namespace vyrtest
