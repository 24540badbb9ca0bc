// The virtual IP checks: each check function on the values operators write,
// and whole check runs over configurations under check.
#include "vip/check/chkconf.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/check_session.h"
#include "support/sh.h"
#include "vyrxml.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kMask = "E [008] Subnet mask is invalid. (value=";
const std::string kNotSet = "E [009] Routing Protocol is not set.";

int Interval(void* text) {
  int value = std::stoi(static_cast<const char*>(text));
  return vip_interval_check(&value);
}

// A wrong verdict or finding text for the address, protocol and interval values.
TEST(CheckFunctions, ValuesAndTheirFindings) {
  const std::tuple<int (*)(void*), std::string, Lines> cases[] = {
      {vip_vipaddr_check, "192.168.0.10/24", {}},
      {vip_vipaddr_check, "192.168.0.10", {}},
      {vip_vipaddr_check, "192.168.0.10/33", {kMask + "192.168.0.10/33)"}},
      {vip_vipaddr_check, "192.168.0.10/", {kMask + "192.168.0.10/)"}},
      {vip_vipaddr_check, "192.168.0.10/x", {kMask + "192.168.0.10/x)"}},
      {vip_vipaddr_check, "192.168.0.10/-1", {kMask + "192.168.0.10/-1)"}},
      {vip_vipaddr_check, "/24", {"E [003] Parameter IP address is empty."}},
      {vip_vipaddr_check,
       "192.168.0.300",
       {"E [006] IP address is invalid. (value=192.168.0.300)"}},
      {vip_vipaddr_check, "fe80::1/64", {}},
      {vip_vipaddr_check, "fe80::1/129", {kMask + "fe80::1/129)"}},
      {vip_protocol_check, "RIPver2,RIPngver1", {}},
      {vip_protocol_check, "RIPver1,RIPver1", {}},
      {vip_protocol_check, "RIPver1, RIPver2", {"E [010] Remove top blank. (value= RIPver2)"}},
      {vip_protocol_check, "RIPver1 ,RIPver2", {"E [011] Remove tail blank. (value=RIPver1 )"}},
      {vip_protocol_check, "RIPver1,", {kNotSet}},
      {vip_protocol_check, "RIPver1,,", {kNotSet, kNotSet}},
      {vip_protocol_check, "ripver1", {"E [012] Routing Protocol is invalid. (value=ripver1)"}},
      {Interval, "0", {"E [004] Value of Send Interval is out of range. (value=0)"}},
      {Interval, "1", {}},
      {Interval, "30", {}},
      {Interval, "31", {"E [004] Value of Send Interval is out of range. (value=31)"}},
  };
  for (const auto& [check, value, lines] : cases) {
    std::string copy = value;
    EXPECT_EQ(vyrtest::CheckLogged("t", [&check = check, &copy] { return check(copy.data()); }),
              std::make_pair(lines.empty() ? 0 : 1, lines))
        << '"' << value << '"';
  }
}

// A wrong verdict, a lost or extra finding, or a configuration under check
// left loaded, over whole check runs of one resource.
TEST(ConfCheck, WholeRunsGiveTheirVerdictAndFindings) {
  vyrtest::TempDir dir;
  vyrtest::ScopedEnv config("VYR_CONFIG", dir / "cluster.xml");
  vyrtest::ScopedEnv policies("VYR_POLICY_DIR", VYR_SOURCE_DIR "/platform/policy");
  vyrtest::WriteFile(dir / "cluster.xml",
                     "<root><all><path>" VYR_TESTDATA_DIR
                     "/chkconf</path></all><cluster><check>"
                     "<chkconf>three_servers.xml</chkconf></check></cluster></root>\n");
  ASSERT_EQ(xmllib_init("vip"), 0);
  ASSERT_EQ(xmllib_load_config(), 0);
  const std::pair<std::string, std::pair<int, Lines>> cases[] = {
      // Two of three servers lack a source address: one line.
      {"srcmissing", {1, {"E [013] Parameter Source IP Address is required for each server."}}},
      // The comment is judged first; the bad properties are never examined.
      {"nocomment", {1, {"E [097] Path of Comment does not exist."}}},
      {"longcomment", {1, {"E [098] Length of Comment is out of range."}}},
      // The defence and address change settings: sound at both ends of their ranges, and
      // each fault named in table order.
      {"defence", {0, {}}},
      {"baddefence",
       {1,
        {"E [004] Value of NA Retry is out of range. (value=11)",
         "E [014] Value of DAD Timeout is not a number. (value=2s)",
         "E [003] Parameter ARP Probe Timeout is empty.",
         "E [004] Value of DAD Probe is out of range. (value=20001)",
         "E [004] Value of ARP Background is out of range. (value=2)",
         "E [004] Value of Rtnetlink is out of range. (value=2)",
         "E [004] Value of Preferred Lifetime is out of range. (value=-2)",
         "E [014] Value of ARP Check Timeout is not a number. (value=0.2)",
         "E [007] NIC alias is invalid. (value=a b)",
         "E [006] IP address is invalid. (value=192.0.2)"}}},
      {"negdefence",
       {1,
        {"E [004] Value of ARP Probe Timeout is out of range. (value=-1)",
         "E [004] Value of ARP Interval is out of range. (value=-1)",
         "E [007] NIC alias is invalid. (value=abcdefghijklmn)"}}},
      {"longproto",
       {99, {"E [003] Parameter Source IP Address is empty.", "E [099] Internal error occurred."}}},
  };
  for (const auto& [rscname, outcome] : cases) {
    EXPECT_EQ(vyrtest::CheckLogged(
                  rscname, [&rscname = rscname] { return vip_conf_check(rscname.c_str()); }),
              outcome)
        << rscname;
    EXPECT_EQ(hchkconf, nullptr) << rscname << ": the configuration under check stays loaded";
  }
  xmllib_term();
}

}  // namespace
