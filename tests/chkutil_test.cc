// Integer parameters judged against the ranges of the shipped vip policy.
#include "chkutil/chkutil.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/check_session.h"
#include "support/sh.h"
#include "vyrxml.h"

namespace {

// A value outside its range that passes, a range taken from the wrong policy
// entry, or an unreadable value that does not end the check with 99.
TEST(NumericValues, JudgedAgainstThePolicyRanges) {
  vyrtest::ScopedEnv config("VYR_CONFIG", VYR_TESTDATA_DIR "/chkconf/numeric.xml");
  vyrtest::ScopedEnv policies("VYR_POLICY_DIR", VYR_SOURCE_DIR "/platform/policy");
  ASSERT_EQ(xmllib_init("vip"), 0);
  ASSERT_EQ(xmllib_load_config(), 0);
  ASSERT_EQ(xmllib_load_policy("vip"), 0);
  const std::string kRange = "E [042] Value of P is out of range. (value=";
  // param1: 1 to 30; param2, param3 and no index: 0 to 1.
  const std::tuple<std::string, const char*, std::pair<int, std::vector<std::string>>> cases[] = {
      {"interval_ok", "1", {0, {}}},
      {"interval_high", "1", {1, {kRange + "31)"}}},
      {"interval_low", "1", {1, {kRange + "0)"}}},
      {"flag_two", nullptr, {1, {kRange + "2)"}}},
      {"flag_two", "2", {1, {kRange + "2)"}}},
      {"flag_one", "3", {0, {}}},
      {"nothing", nullptr, {99, {}}},
  };
  for (const auto& [leaf, index, outcome] : cases) {
    const std::string path = "/root/resource/vip@%s/parameters/" + leaf;
    const numeric_param param{"P", path.c_str(), index};
    EXPECT_EQ(
        vyrtest::CheckLogged("num", [&] { return check_numeric_values("num", &param, 1, 42); }),
        outcome)
        << leaf;
  }
  xmllib_term();  // releases the configuration and policy too
}

}  // namespace
