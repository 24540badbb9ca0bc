// The virtual IP checks: each check function on the values operators write,
// and whole check runs over configurations under check.
#include "vip/chkconf.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/check_session.h"
#include "support/sh.h"
#include "vyrxml.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kMask = "E [008] Subnet mask is invalid. (value=";
const std::string kNotSet = "E [009] Routing Protocol is not set.";
const std::string kRange = "E [004] Value of Send Interval is out of range. (value=";

int Interval(void* text) {
  int value = std::stoi(static_cast<const char*>(text));
  return vip_interval_check(&value);
}

// A wrong verdict or finding text for the address, protocol and interval values.
TEST(CheckFunctions, ValuesAndTheirFindings) {
  struct Case {
    int (*check)(void*);
    std::string value;
    Lines lines;
  };
  const Case cases[] = {
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
      {Interval, "0", {kRange + "0)"}},
      {Interval, "1", {}},
      {Interval, "30", {}},
      {Interval, "31", {kRange + "31)"}},
  };
  for (const Case& c : cases) {
    std::string copy = c.value;
    EXPECT_EQ(vyrtest::CheckLogged("t", [&] { return c.check(copy.data()); }),
              std::make_pair(c.lines.empty() ? 0 : 1, c.lines))
        << '"' << c.value << '"';
  }
}

// A wrong verdict, a lost or extra finding, or a configuration under check
// left loaded, over whole check runs of one resource.
TEST(ConfCheck, WholeRunsGiveTheirVerdictAndFindings) {
  vyrtest::TempDir dir;
  vyrtest::ScopedEnv config("VYR_CONFIG", dir / "cluster.xml");
  vyrtest::ScopedEnv policies("VYR_POLICY_DIR", std::string(VYR_SOURCE_DIR) + "/platform/policy");
  struct Case {
    std::string rscname;
    int ret;
    Lines body;
    std::string file = "three_servers.xml";
  };
  const Case cases[] = {
      // Two of three servers lack a source address: one line; one of one: none.
      {"srcmissing", 1, {"E [013] Parameter Source IP Address is required for each server."}},
      {"srcmissing", 0, {}, "one_server.xml"},
      // The comment is judged first; its bad properties are never examined.
      {"nocomment", 1, {"E [097] Path of Comment does not exist."}},
      {"longcomment", 1, {"E [098] Length of Comment is out of range."}},
      {"longproto",
       99,
       {"E [003] Parameter Source IP Address is empty.", "E [099] Internal error occurred."}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.rscname + " in " + c.file);
    vyrtest::WriteFile(dir / "cluster.xml", "<root><all><path>" VYR_TESTDATA_DIR
                                            "/chkconf</path></all><cluster><check><chkconf>" +
                                                c.file + "</chkconf></check></cluster></root>\n");
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0);
    srcipaddrflag = 0;
    EXPECT_EQ(vyrtest::CheckLogged(c.rscname, [&] { return vip_conf_check(c.rscname.c_str()); }),
              std::make_pair(c.ret, c.body));
    EXPECT_EQ(hchkconf, nullptr) << "the configuration under check is released";
    vip_unload_chkconf();
    xmllib_unload_config();
    xmllib_term();
  }
}

}  // namespace
